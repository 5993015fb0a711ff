#include "dataparser/engine/ios_backup/ios_backup_engine.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "dataparser/engine/ios_backup/backup_manifest.h"
#include "dataparser/engine/ios_backup/contact_names.h"
#include "dataparser/engine/ios_backup/sqlite_database.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "dataparser/util/text.h"
#include "tests/backup_fixture.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;
using testing::LogCapture;
using testing::TempDir;

// What the engine sent, with the files each block named read while they still existed.
struct Sent {
  CallbackTypeExtend code;
  std::string text;
  std::vector<std::string> files;
};

std::mutex gMutex;
std::vector<Sent> gSent;
bool gStopOnContacts = false;  // the contacts block asks the running engine to stop
IOSBackupEngine* gEngine = nullptr;

int record(CallbackTypeExtend code, const char* data, int) {
  Sent sent{code, data != nullptr ? data : "", {}};
  json::Value block = json::parse(sent.text);
  for (std::string_view key : {"sms_file_path", "contact_file_path"}) {
    for (json::View path : block[key].elements()) {
      sent.files.push_back(readFile(std::string(path.string())).value_or("missing"));
    }
  }
  if (code == 55 && gStopOnContacts) gEngine->StopPackage();
  std::lock_guard lock(gMutex);
  gSent.push_back(std::move(sent));
  return 0;
}

std::string picture() {
  return readFile(
             testing::fixturePath("../../samples/sms-demo/files/Attachments/ab/01/IMG_0001.JPG"))
      .value_or("");
}

// Every file below `folder` with the SHA-1 of its bytes.
std::map<std::string, std::string> hashes(const fs::path& folder) {
  std::map<std::string, std::string> all;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) {
      all[entry.path().string()] = sha1String(readFile(entry.path().string()).value_or(""));
    }
  }
  return all;
}

class IOSBackupEngineTest : public ::testing::Test {
 public:  // the damage table reaches the backup
  void SetUp() override {
    backup_ = dir_.str() + "/backup";
    testing::writeSampleBackup(backup_, picture());
    std::lock_guard lock(gMutex);
    gSent.clear();
    gStopOnContacts = false;
  }

  std::vector<Sent> scan(const std::vector<ScanType>& types = {}) {
    IOSBackupEngine engine;
    engine.InitPackageData("", "", dir_.str() + "/temp");
    engine.StartPackage(&record);
    for (ScanType type : types)
      engine.AddTypeNeedScan(type);
    gEngine = &engine;  // before the scan's thread starts
    engine.AddBackupFolder(backup_);
    engine.AddPackageFileFinish();
    EXPECT_TRUE(engine.waitUntilIdle(std::chrono::seconds(20)));
    std::lock_guard lock(gMutex);
    gEngine = nullptr;
    return gSent;
  }

  static std::vector<CallbackTypeExtend> codes(const std::vector<Sent>& sent) {
    std::vector<CallbackTypeExtend> all;
    for (const Sent& block : sent)
      all.push_back(block.code);
    return all;
  }

  static const Sent* find(const std::vector<Sent>& sent, CallbackTypeExtend code) {
    for (const Sent& block : sent) {
      if (block.code == code) return &block;
    }
    return nullptr;
  }

  std::string databasePath(std::string_view relativePath) const {
    std::string id = backupFileID("HomeDomain", relativePath);
    return backup_ + "/" + id.substr(0, 2) + "/" + id;
  }

  TempDir dir_;
  std::string backup_;
  LogCapture log_;
};

TEST_F(IOSBackupEngineTest, BlocksOfEveryReaderBetweenBeginAndFinish) {
  const std::map<std::string, std::string> before = hashes(backup_);
  std::vector<Sent> sent = scan();
  EXPECT_EQ(codes(sent), (std::vector<CallbackTypeExtend>{90, 55, 91, 56, 91, 51, 91, 92}));
  EXPECT_EQ(sent[2].text, "{\"current\": 1, \"total\": 3}");
  EXPECT_EQ(sent[6].text, "{\"current\": 3, \"total\": 3}");
  // The backup is left byte for byte as it was, with no journal beside its databases.
  EXPECT_EQ(hashes(backup_), before);
  // The files the blocks named are gone with the scan.
  EXPECT_TRUE(fs::is_empty(dir_.path() / "temp"));

  // Contacts: one file of records with their labelled multi-values and picture.
  const Sent* contacts = find(sent, 55);
  ASSERT_NE(contacts, nullptr);
  ASSERT_EQ(contacts->files.size(), 1u);
  json::Value file = json::parse(contacts->files[0]);
  json::View people = file["contacts_info"];
  ASSERT_EQ(people.size(), 2u);
  json::View ann = people.at(0);
  EXPECT_EQ(ann["ROWID"].integer(), 1);
  EXPECT_EQ(ann["guid"].string(), "G-ANN");
  EXPECT_EQ(ann["First"].string(), "Ann");
  EXPECT_EQ(ann["Last"].string(), "Lee");
  EXPECT_EQ(ann["Organization"].string(), "Pier Co");
  EXPECT_EQ(ann["Birthday"].string(), "01-01-1985 00:00:00");
  EXPECT_FALSE(ann["Middle"].present());
  EXPECT_FALSE(ann["PreviousFamilyName"].present());  // a column this address book lacks
  EXPECT_EQ(ann["phone_info"].at(0)["label_name"].string(), "_$!<Mobile>!$_");
  EXPECT_EQ(ann["phone_info"].at(0)["property"].integer(), 3);
  EXPECT_EQ(ann["phone_info"].at(0)["value"].string(), "+1 (555) 010-1");
  EXPECT_EQ(ann["email_info"].at(0)["value"].string(), "ann@example.com");
  json::View address = ann["address_info"].at(0);
  EXPECT_EQ(address["label_name"].string(), "_$!<Home>!$_");
  ASSERT_EQ(address["entry_n_key"].size(), 2u);
  EXPECT_EQ(address["entry_n_key"].at(0)["entry_key"].string(), "Street");
  EXPECT_EQ(address["entry_n_key"].at(0)["entry"].string(), "1 Pier Road");
  EXPECT_FALSE(ann["thumb_path"].string().empty());
  EXPECT_FALSE(ann["image_path"].present());
  EXPECT_EQ(people.at(1)["JobTitle"].string(), "Skipper");
  EXPECT_EQ(people.at(1)["phone_info"].at(0)["label_name"].string(), "_$!<Work>!$_");

  // Calls: direction, outcome and names by number (formatting ignored) or address.
  const Sent* calls = find(sent, 51);
  ASSERT_NE(calls, nullptr);
  json::Value callBlock = json::parse(calls->text);
  json::View records = callBlock["call_records"];
  ASSERT_EQ(records.size(), 4u);
  struct Expected {
    std::int64_t flags;
    std::int64_t connectType;
    std::string_view first;
    std::string_view last;
    std::string_view datetime;
  };
  const Expected expected[] = {
      {1, 0, "Ann", "Lee", "06-14-2024 09:12:05"},  // outgoing, answered 0 yet connected
      {1, 1, "", "", "06-14-2024 09:13:20"},        // outgoing, never connected
      {0, 2, "Bob", "", "06-14-2024 09:15:00"},     // missed; "5550102" is Bob's "555-0102"
      {0, 0, "Ann", "Lee", "06-14-2024 09:16:40"},  // FaceTime by e-mail address
  };
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    json::View call = records.at(i);
    EXPECT_EQ(call["flags"].integer(), expected[i].flags) << i;
    EXPECT_EQ(call["connect_type"].integer(), expected[i].connectType) << i;
    EXPECT_EQ(call["first"].string(), expected[i].first) << i;
    EXPECT_EQ(call["last"].string(), expected[i].last) << i;
    EXPECT_EQ(call["datetime"].string(), expected[i].datetime) << i;
    EXPECT_EQ(call["belong"].string(), "") << i;  // no line column in this version
  }
  EXPECT_DOUBLE_EQ(records.at(0)["duration"].number(), 65.5);
  EXPECT_EQ(records.at(0)["location"].string(), "Seaside");
  EXPECT_EQ(records.at(3)["call_type"].integer(), 8);
  EXPECT_EQ(records.at(3)["service_provider"].string(), "com.apple.FaceTime");
}

TEST_F(IOSBackupEngineTest, MessagesFileLayout) {
  std::vector<Sent> sent = scan();
  const Sent* sms = find(sent, 56);
  ASSERT_NE(sms, nullptr);
  ASSERT_EQ(sms->files.size(), 1u);
  json::Value file = json::parse(sms->files[0]);
  json::View chats = file["chat_sessions"];
  ASSERT_EQ(chats.size(), 3u);
  json::View ann = chats.at(0);
  EXPECT_EQ(ann["chat_identifier"].string(), "+15550101");
  EXPECT_EQ(ann["is_deleted"].integer(), 0);
  EXPECT_EQ(ann["members"].at(0)["first"].string(), "Ann");
  json::View messages = ann["messages"];
  ASSERT_EQ(messages.size(), 6u);
  struct Expected {
    std::string_view text;
    std::string_view date;
    std::int64_t fromMe;
    std::string_view fromID;
    std::string_view tag;
  };
  const Expected expected[] = {
      {"Are we still on for Saturday?", "06-14-2024 09:12:05", 0, "+15550101", ""},  // seconds
      {"Yes! 10am at the pier.", "06-14-2024 09:13:40", 1, "+15550100", ""},         // nanoseconds
      {"", "06-14-2024 09:15:02", 0, "+15550101", ""},  // the attachment's placeholder goes
      {"Bring sunscreen.", "06-14-2024 09:20:00", 0, "+15550101", ""},
      {"Hello from the archive", "06-14-2024 09:21:40", 0, "+15550101", ""},
      {"Sorry, wrong chat", "06-14-2024 09:23:20", 1, "+15550100", "deleted"},
  };
  for (std::size_t i = 0; i < std::size(expected); ++i) {
    json::View message = messages.at(i);
    EXPECT_EQ(message["text"].string(), expected[i].text) << i;
    EXPECT_EQ(message["send_date"].string(), expected[i].date) << i;
    EXPECT_EQ(message["is_from_me"].integer(), expected[i].fromMe) << i;
    EXPECT_EQ(message["from_id"].string(), expected[i].fromID) << i;
    EXPECT_EQ(message["tag"].string(), expected[i].tag) << i;
  }
  EXPECT_EQ(messages.at(3)["subject"].string(), "Saturday");
  EXPECT_EQ(messages.at(5)["send_status"].integer(), 1);  // error 22
  EXPECT_EQ(messages.at(2)["media_path"].string(),
            "~/Library/SMS/Attachments/ab/01/A1/IMG_0001.JPG");
  EXPECT_EQ(readFile(std::string(messages.at(2)["media_backup_path"].string())), picture());

  json::View trip = chats.at(1);
  EXPECT_EQ(trip["is_group"].integer(), 1);
  EXPECT_EQ(trip["room_name"].string(), "Weekend trip");
  ASSERT_EQ(trip["members"].size(), 3u);
  EXPECT_EQ(trip["members"].at(1)["first"].string(), "Bob");
  EXPECT_FALSE(trip["members"].at(2)["first"].present());

  json::View gone = chats.at(2);  // only in Recently Deleted: the whole chat was deleted
  EXPECT_EQ(gone["is_deleted"].integer(), 1);
  EXPECT_EQ(gone["messages"].at(0)["tag"].string(), "deleted");
}

TEST_F(IOSBackupEngineTest, BadBackupsAndDatabases) {
  struct Case {
    std::string_view name;
    std::function<void(IOSBackupEngineTest&)> damage;
    std::vector<CallbackTypeExtend> codes;
    std::string_view logged;
  };
  const std::vector<Case> cases = {
      {"missing sms.db",
       [](IOSBackupEngineTest& t) { fs::remove(t.databasePath("Library/SMS/sms.db")); },
       {90, 55, 91, 91, 51, 91, 92},
       "no sms database"},
      {"corrupt call history",
       [](IOSBackupEngineTest& t) {
         std::ofstream(t.databasePath("Library/CallHistoryDB/CallHistory.storedata"))
             << "this is not a database at all, just some bytes";
       },
       {90, 55, 91, 56, 91, 91, 92},
       "skipped corrupt call history database"},
      {"address book without its tables",
       [](IOSBackupEngineTest& t) {
         const std::string path = t.databasePath("Library/AddressBook/AddressBook.sqlitedb");
         fs::remove(path);
         testing::TestDatabase empty(path);
         empty.exec("CREATE TABLE other (x)");
       },
       {90, 91, 56, 91, 51, 91, 92},
       "skipped contacts database"},
      {"encrypted",
       [](IOSBackupEngineTest& t) {
         std::ofstream(t.backup_ + "/Manifest.plist")
             << "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>IsEncrypted</key>"
                "<true/></dict></plist>";
       },
       {90, 84},
       "the backup is encrypted"},
      {"no Manifest.db",
       [](IOSBackupEngineTest& t) { fs::remove(t.backup_ + "/Manifest.db"); },
       {90, 84},
       "Manifest.db"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(backup_);
    testing::writeSampleBackup(backup_, picture());
    c.damage(*this);
    {
      std::lock_guard lock(gMutex);
      gSent.clear();
    }
    EXPECT_EQ(codes(scan()), c.codes);
    bool logged = false;
    for (const std::string& line : log_.run().lines())
      logged = logged || line.find(c.logged) != std::string::npos;
    EXPECT_TRUE(logged) << c.logged;
  }
}

TEST_F(IOSBackupEngineTest, StopAndScanTypes) {
  gStopOnContacts = true;
  // A stop asked for during the first block ends the scan there, with its finish.
  EXPECT_EQ(codes(scan()), (std::vector<CallbackTypeExtend>{90, 55, 92}));

  // A scan of one application's data runs none of these readers; scan type 0 runs them all.
  gStopOnContacts = false;
  gSent.clear();
  EXPECT_EQ(codes(scan({3})), (std::vector<CallbackTypeExtend>{90, 92}));
  gSent.clear();
  EXPECT_EQ(codes(scan({3, 0})).size(), 8u);
}

TEST(ContactNamesTest, NumbersMatchByDigitsAndAddressesByCase) {
  ContactNames names;
  names.add("+1 (555) 010-1", {"Ann", "", "Lee"});
  names.add("555-0102", {"Bob", "", ""});
  names.add("Ann@Example.com", {"Ann", "", "Mail"});
  names.add("112", {"Emergency", "", ""});
  struct Case {
    std::string_view lookup;
    std::string_view first;  // "" for no match
  };
  const Case cases[] = {
      {"+15550101", "Ann"},
      {"15550101", "Ann"},
      {"555 0101", "Ann"},  // suffix, 7 digits
      {"+1 555 0102", "Bob"},
      {"5550102", "Bob"},
      {"0102", ""},  // too short
      {"ann@example.com", "Ann"},
      {"112", "Emergency"},
      {"9112", ""},
      {"+44 20 5550101", ""},  // same tail, different number
      {"", ""},
      {"no digits", ""},
  };
  for (const Case& c : cases) {
    const PersonName* name = names.find(c.lookup);
    EXPECT_EQ(name != nullptr ? name->first : "", c.first) << c.lookup;
  }
}

TEST(SqliteDatabaseTest, ImmutableURIEscapesThePath) {
  EXPECT_EQ(immutableDatabaseURI("/a b/c?d#e%f.db"),
            "file:/a%20b/c%3Fd%23e%25f.db?mode=ro&immutable=1");
}

}  // namespace
}  // namespace dataparser
