#include "dataparser/parsers/personal/call_history.h"

#include <gtest/gtest.h>

#include <chrono>

#include "dataparser/util/date_format.h"

namespace dataparser {
namespace {

std::shared_ptr<IOSCallHistoryParser> parse(const std::string& calls, bool parseDeleted = true) {
  return IOSCallHistoryParser::parserWithJSONData("{\"call_records\": [" + calls + "]}",
                                                  parseDeleted);
}

std::shared_ptr<IOSCallHistoryItem> call(std::string_view json) {
  return IOSBaseItem::itemWithDictionary<IOSCallHistoryItem>(json::parse(json));
}

std::shared_ptr<IOSCallHistoryItem> at(const ItemList& list, std::size_t index) {
  return std::static_pointer_cast<IOSCallHistoryItem>(list.at(index));
}

TEST(CallHistoryTest, DirectionsOutcomesAndDurations) {
  struct Case {
    const char* record;
    const char* strType;
    const char* strDuration;
  };
  const Case cases[] = {
      {R"({"flags": 1, "connect_type": 0, "duration": 3723.9})", "CallHistory_Outgoing", "1:2:3"},
      {R"({"flags": 0, "connect_type": 0, "duration": 59.99})", "CallHistory_Incoming", "0:0:59"},
      {R"({"flags": 7, "connect_type": 0, "duration": 3600})", "CallHistory_Incoming", "1:0:0"},
      {R"({"flags": 0, "connect_type": 2, "duration": 125})", "CallHistory_Incoming",
       "CallHistory_Missed"},
      {R"({"flags": 1, "connect_type": 2, "duration": 125})", "CallHistory_Outgoing", "0:2:5"},
      {R"({"flags": 1, "connect_type": 1, "duration": 125})", "CallHistory_Outgoing",
       "CallHistory_Canceled"},
      {R"({"flags": 0, "connect_type": 1, "duration": 61})", "CallHistory_Incoming", "0:1:1"},
      {R"({"flags": 1, "duration": 0.9})", "CallHistory_Outgoing", "00:00"},
      {R"({"flags": 1, "duration": -30})", "CallHistory_Outgoing", "00:00"},
      {R"({"flags": 1, "duration": 1e300})", "CallHistory_Outgoing", "00:00"},
      {R"({"flags": 1, "duration": "61"})", "CallHistory_Outgoing", "00:00"},
      {R"({"flags": 4294967297, "duration": 1})", "CallHistory_Outgoing", "0:0:1"},
      {R"({})", "CallHistory_Incoming", "00:00"},
  };
  for (const Case& c : cases) {
    auto item = call(c.record);
    EXPECT_EQ(item->strType(), c.strType) << c.record;
    EXPECT_EQ(item->strDuration(), c.strDuration) << c.record;
  }
  // The built-by-hand call follows the same rules, with its own unknown direction.
  const std::tuple<std::uint64_t, std::uint64_t, float, const char*, const char*> built[] = {
      {kCallIncoming, 2, 30, "CallHistory_Incoming", "CallHistory_Missed"},
      {kCallOutgoing, 1, 30, "CallHistory_Outgoing", "CallHistory_Canceled"},
      {kCallUnknown, 1, 30, "CallHistory_", "CallHistory_Canceled"},
      {kCallUnknown, 0, 3661, "CallHistory_", "1:1:1"},
  };
  for (const auto& [type, answer, duration, strType, strDuration] : built) {
    IOSCallItem item;
    item.setType(type);
    item.setAnswerType(answer);
    item.setDuration(duration);
    EXPECT_EQ(item.strType(), strType);
    EXPECT_EQ(item.strDuration(), strDuration);
    EXPECT_EQ(item.strDate(), "");
  }
}

TEST(CallHistoryTest, NamesPlacesDatesAndFaceTime) {
  auto item = call(R"({"first": "Ann", "middle": "", "last": "Lee", "address": "+1555",
      "location": "Paris", "datetime": "01-02-2020 03:04:05", "call_type": 16, "answered": 1})");
  EXPECT_EQ(item->name(), "Ann Lee");
  EXPECT_EQ(item->phone(), "+1555");
  EXPECT_EQ(item->location(), "Paris");
  EXPECT_EQ(item->strDate(), "2020/01/02 03:04:05");
  EXPECT_EQ(item->answered(), 1);
  EXPECT_TRUE(item->isFaceTime());

  auto bare = call(R"({"location": "<<RecentsNumberLocationNotFound>>", "datetime": "2020-01-02",
      "call_type": "8", "address": 5})");
  EXPECT_EQ(bare->name(), "Unknown");
  EXPECT_EQ(bare->location(), "");
  EXPECT_EQ(bare->phone(), "");
  EXPECT_FALSE(bare->date());  // a date text that does not parse
  EXPECT_EQ(bare->strDate(), "");
  EXPECT_FALSE(bare->isFaceTime());
  EXPECT_TRUE(call(R"({"call_type": 1, "service_provider": "com.apple.FaceTime"})")->isFaceTime());
  EXPECT_TRUE(call(R"({"call_type": 8.0})")->isFaceTime());

  // An undated call is dated when first read, and keeps that date.
  auto undated = call(R"({"datetime": ""})");
  auto before = std::chrono::system_clock::now();
  ASSERT_TRUE(undated->date());
  EXPECT_GE(*undated->date(), std::chrono::time_point_cast<std::chrono::microseconds>(before) -
                                  std::chrono::seconds(1));
  EXPECT_EQ(undated->date(), undated->date());
}

TEST(CallHistoryTest, SimLabelsFaceTimeListAndDeletedCalls) {
  const std::string calls = R"(
      {"address": "1", "belong": "A"}, {"address": "2", "belong": "B"},
      {"address": "3", "belong": ""}, {"address": "4", "belong": "A", "call_type": 8},
      "not a call", {"address": "5", "belong": "C", "tag": "deleted", "call_type": 16},
      {"address": "6", "belong": "D"})";
  auto all = parse(calls);
  ASSERT_EQ(all->items().size(), 6u);
  std::vector<std::string> labels;
  for (const ItemPtr& item : all->items()) {
    labels.push_back(std::static_pointer_cast<IOSCallHistoryItem>(item)->belong());
  }
  EXPECT_EQ(labels, (std::vector<std::string>{"SIM1", "SIM2", "", "SIM1", "SIM3", "SIM4"}));
  ASSERT_EQ(all->callHistorys().size(), 2u);
  EXPECT_EQ(at(all->callHistorys(), 0)->phone(), "4");
  EXPECT_EQ(at(all->callHistorys(), 0)->belong(), "A");  // the raw value
  EXPECT_NE(all->callHistorys()[0], all->items()[3]);    // a separate item

  auto kept = parse(calls, /*parseDeleted=*/false);
  ASSERT_EQ(kept->items().size(), 5u);
  EXPECT_EQ(at(kept->items(), 4)->belong(), "SIM3");  // the deleted call took no number
  EXPECT_EQ(kept->callHistorys().size(), 1u);

  for (const char* text :
       {"[]", "{}", R"({"call_records": null})", R"({"call_records": {}})", "not json"}) {
    auto parser = IOSCallHistoryParser::parserWithJSONData(text, true);
    EXPECT_TRUE(parser->items().empty()) << text;
    EXPECT_TRUE(parser->callHistorys().empty()) << text;
  }
}

}  // namespace
}  // namespace dataparser
