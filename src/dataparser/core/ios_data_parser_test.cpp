#include "dataparser/core/ios_data_parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <semaphore>
#include <thread>

#include <fmt/format.h>

#include "dataparser/engine/folder_backup_manager.h"
#include "dataparser/engine/replay_engine.h"
#include "dataparser/util/file_helper.h"
#include "tests/scan_support.h"

namespace dataparser {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::mediaJson;
using testing::parserJson;

// Each engine call as "NAME FIRST-ARGUMENT" (InitPackageData by its name alone).
std::vector<std::string> callNames(const ReplayEngine& engine) {
  std::vector<std::string> names;
  for (const ReplayEngine::Call& call : engine.calls()) {
    names.push_back(call.arguments.empty() || call.name == "InitPackageData"
                        ? call.name
                        : call.name + " " + call.arguments[0]);
  }
  return names;
}

class CoordinatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    engine = std::make_shared<ReplayEngine>();
    parser().setPackageEngine(engine);
    parser().setBackupManager(nullptr);
    parser().setDispatchTable(testing::testDispatchTable());
    parser().setDelegate(observer.delegate());
    parser().setParseDeleted(false);
    parser().setDeviceBackup(false);
    parser().setSelectedDataType(0);
  }
  void TearDown() override {
    EXPECT_TRUE(engine->waitUntilIdle(10s));
    parser().setPackageEngine(nullptr);
    parser().setBackupManager(nullptr);
    parser().resetParser();
    parser().setDelegate({});
    parser().setDispatchTable(DispatchTable::standard());
    parser().setDeviceBackup(false);
    parser().setParseDeleted(false);
  }
  static IOSDataParser& parser() { return IOSDataParser::shared(); }

  // Runs a whole scan of `recording` and waits for its end.
  void scan(const std::string& recording) {
    parser().startParseWithBackupPath(recording);
    ASSERT_TRUE(observer.waitForEnd());
    ASSERT_TRUE(engine->waitUntilIdle(10s));
  }
  // Starts a scan without an engine run: parsers ready, pieces handed in by the test.
  void startPieces() { parser().setupParser(); }

  testing::LogCapture logs;
  testing::TempDir dir;
  testing::RecordingObserver observer;
  std::shared_ptr<ReplayEngine> engine;
};

TEST_F(CoordinatorTest, ScanReportsBeginProgressDataAndFinish) {
  testing::RecordingWriter recording(dir);
  recording
      .block(56, parserJson({"sms1", "sms2"}))  // SMS: no attachments, so no 0x100000
      .block(54, "{\"ignored\": true}")         // discard code
      .block(66, parserJson({"photo"}, {}, {}, {"video"}));
  scan(recording.path());

  EXPECT_THAT(observer.events(),
              ElementsAre("began", "fetched 0x80000 sms1,sms2", "progress 0.5", "fetched 0x2 photo",
                          "fetched 0x4 video", "progress 1", "finished 1"));
  EXPECT_TRUE(logs.run().contains("*** start parse backup: " + recording.path()));
  EXPECT_TRUE(logs.run().contains("*** end add backup: " + recording.path()));
  EXPECT_TRUE(logs.run().contains(">>> CallbackFuction Discard!!!"));
  EXPECT_TRUE(logs.run().contains("*** Data parse finished!!!"));
  EXPECT_TRUE(logs.run().contains("*** -[IOSDataParser parseFinished:]"));
  EXPECT_TRUE(logs.run().contains("******"));
  EXPECT_TRUE(logs.run().contains("*** -[IOSDataParser resetParser]"));

  std::string root = productDomainPath();
  EXPECT_EQ(engine->calls("InitPackageData").at(0).arguments,
            (std::vector<std::string>{root + "/Logs", configurationPath(), root + "/temp"}));
  EXPECT_TRUE(isDirectory(root + "/Logs"));
  EXPECT_TRUE(isDirectory(root + "/temp"));
  EXPECT_TRUE(isDirectory(root + "/data"));
  EXPECT_THAT(callNames(*engine),
              ElementsAre("InitPackageData", "StartPackage", "AddBackupFolder " + recording.path(),
                          "AddPackageFileFinish"));
}

TEST_F(CoordinatorTest, RecordingRootTokenBecomesTheRecordingFolder) {
  testing::RecordingWriter recording(dir);
  recording.block(56, parserJson({"{{ROOT}}/sms.db"}));
  scan(recording.path());
  EXPECT_THAT(observer.fetched(), ElementsAre("fetched 0x80000 " + recording.path() + "/sms.db"));
}

TEST_F(CoordinatorTest, FinishDropsLongLivedParsersAndANewScanStartsFresh) {
  ParserPtr duringScan;
  observer.delegate()->didParseFinished = [&](IOSDataParser& coordinator, int status) {
    duringScan = coordinator.weChatParser();
    observer.add("finished " + std::to_string(status));
  };
  testing::RecordingWriter first(dir, "first");
  first.block(62, parserJson({"w1"}));
  scan(first.path());
  ASSERT_NE(duringScan, nullptr);  // still there while the observer hears of the end
  EXPECT_EQ(parser().weChatParser(), nullptr);
  EXPECT_EQ(parser().otherAttachmentParser(), nullptr);
  EXPECT_TRUE(parser().notes().empty());

  testing::RecordingObserver second;
  parser().setDelegate(second.delegate());
  testing::RecordingWriter next(dir, "second");
  next.block(62, parserJson({"w2"}));
  parser().startParseWithBackupPath(next.path());
  ASSERT_TRUE(second.waitForEnd());
  // The second scan's WeChat parser starts empty: w1 is not carried over.
  EXPECT_THAT(second.fetched(), ElementsAre("fetched 0x40000000 w2", "fetched 0x10000000000 w2",
                                            "fetched 0x40000000 w2"));
  EXPECT_EQ(second.events().back(), "finished 1");
  ASSERT_TRUE(engine->waitUntilIdle(10s));  // `second` must outlive the engine's last report
}

TEST_F(CoordinatorTest, StopFromAnotherThreadEndsTheScanWithStatusTwo) {
  testing::RecordingWriter recording(dir);
  for (int i = 0; i < 20; ++i)
    recording.block(56, parserJson({"m" + std::to_string(i)}));
  std::binary_semaphore reported{0}, stopped{0};
  observer.delegate()->didFetchedData = [&](IOSDataParser&, ItemList items, IOSDataType) {
    observer.add("fetched " + testing::itemName(items.at(0)));
    if (testing::itemName(items.at(0)) == "m0") {
      reported.release();
      stopped.acquire();  // hold the engine's thread until the stop has been asked for
    }
  };
  parser().startParseWithBackupPath(recording.path());
  ASSERT_TRUE(reported.try_acquire_for(20s));
  std::thread stopper([] { parser().stopParse(); });
  stopper.join();
  EXPECT_TRUE(parser().parseStoped());
  stopped.release();
  ASSERT_TRUE(observer.waitForEnd());
  ASSERT_TRUE(engine->waitUntilIdle(10s));

  std::vector<std::string> events = observer.events();
  EXPECT_EQ(events.back(), "finished 2");
  EXPECT_EQ(std::count_if(events.begin(), events.end(),
                          [](const std::string& e) { return e.starts_with("fetched"); }),
            1);
  EXPECT_EQ(std::count(events.begin(), events.end(), "progress 0.05"),
            0);  // no progress after stop
  EXPECT_EQ(engine->calls("StopPackage").size(), 1u);
  EXPECT_FALSE(parser().parseStoped());  // the finish resets the flags
}

// A parser that works until it is told to stop (or 20 s pass), then holds one item.
class StoppableParser : public testing::TestParser {
 public:
  void work() {
    auto until = std::chrono::steady_clock::now() + 20s;
    while (!isStopParser() && std::chrono::steady_clock::now() < until)
      std::this_thread::sleep_for(1ms);
    stoppedInTime = isStopParser();
    take(parserJson({"late"}));
  }
  void addJSONData(JSONData) override { work(); }
  void take(const std::string& text) { testing::TestParser::addJSONData(text); }
  bool stoppedInTime = false;
};

TEST_F(CoordinatorTest, StopReachesTheParserInFlightAndNothingIsReportedAfterIt) {
  // Both kinds: a parser its factory is still building, and a long-lived one being fed.
  std::atomic<StoppableParser*> inFlight = nullptr;
  std::shared_ptr<StoppableParser> made;
  DispatchTable table = testing::testDispatchTable();
  table.setFactory(IOSDataTypeSMS, [&](JSONData, bool, bool) {
    made = std::make_shared<StoppableParser>();
    inFlight = made.get();
    made->work();
    return made;
  });
  table.setSlotMaker(ParserSlot::kLine, [] { return std::make_shared<StoppableParser>(); });
  parser().setDispatchTable(table);
  for (IOSDataType type : {IOSDataTypeSMS, IOSDataTypeLine}) {
    SCOPED_TRACE(type);
    startPieces();
    inFlight = nullptr;
    std::thread engineThread([type] { parser().analyzeData(parserJson({"x"}), type); });
    if (type == IOSDataTypeSMS) {
      while (inFlight.load() == nullptr)
        std::this_thread::sleep_for(1ms);
    } else {
      std::this_thread::sleep_for(50ms);
    }
    auto asked = std::chrono::steady_clock::now();
    parser().stopParse();
    engineThread.join();
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 5s);
    auto worked = type == IOSDataTypeSMS
                      ? made
                      : std::dynamic_pointer_cast<StoppableParser>(parser().lineParser());
    ASSERT_NE(worked, nullptr);
    EXPECT_TRUE(worked->stoppedInTime);
    EXPECT_TRUE(observer.fetched().empty());
    parser().parseFinished(1);
    EXPECT_EQ(observer.events().back(), "finished 2");
  }
}

TEST_F(CoordinatorTest, EngineFailureReportsThreeAndKeepsTheParsers) {
  testing::RecordingWriter recording(dir);
  recording.block(62, parserJson({"w"})).block(84, "{\"error\": \"broken\"}");
  scan(recording.path());
  EXPECT_EQ(observer.events().back(), "error 3");
  EXPECT_TRUE(logs.run().contains("*** Data parse error!!!"));
  EXPECT_NE(parser().weChatParser(), nullptr);  // only the finish resets
  EXPECT_FALSE(logs.run().contains("*** -[IOSDataParser resetParser]"));

  parser().stopParse();
  parser().parseError(3);
  EXPECT_EQ(observer.events().back(), "error 2");
}

TEST_F(CoordinatorTest, UnreadableRecordingFailsTheScan) {
  scan(dir.str() + "/no-such-recording");
  EXPECT_THAT(observer.events(), ElementsAre("began", "error 3"));
}

TEST_F(CoordinatorTest, AfterStopDataNeitherWaitsNorReportsAndFinishIsTwo) {
  startPieces();
  parser().semaphore().acquire();  // a piece still being parsed would block analyzeData
  parser().stopParse();
  parser().analyzeData(parserJson({"late"}), IOSDataTypeSMS);
  parser().analyzeProgress("{\"current\": 1, \"total\": 2}");
  parser().semaphore().release();
  EXPECT_TRUE(observer.events().empty());
  parser().parseFinished(1);
  EXPECT_THAT(observer.events(), ElementsAre("finished 2"));
  EXPECT_EQ(parser().kikParser(), nullptr);
}

TEST_F(CoordinatorTest, ProgressReports) {
  startPieces();
  parser().analyzeProgress("{\"current\": 1, \"total\": 4}");
  parser().analyzeProgress("{\"current\": 5, \"total\": 0}");      // total 0: nothing
  parser().analyzeProgress("{\"current\": \"1\", \"total\": 2}");  // wrong type reads as 0
  parser().analyzeProgress("[1, 2]");                              // not an object: nothing
  EXPECT_THAT(observer.events(), ElementsAre("progress 0.25", "progress 0"));
  parser().analyzeProgress("not json");
  ASSERT_EQ(logs.run().lines().size(), 1u);
  EXPECT_TRUE(logs.run().lines()[0].starts_with("*** analyze progress failed: "));
}

TEST_F(CoordinatorTest, ObserverWithoutOperationsOrNoneAtAll) {
  auto silent = std::make_shared<IOSDataParserDelegate>();
  parser().setDelegate(silent);
  startPieces();
  parser().parseBegined();
  parser().analyzeData(parserJson({"n"}), IOSDataTypeNote);
  parser().analyzeProgress("{\"current\": 1, \"total\": 2}");
  parser().parseError(3);
  // Without an observer that takes the reports, notes are not even collected.
  EXPECT_TRUE(parser().notes().empty());
  {
    auto gone = std::make_shared<IOSDataParserDelegate>();
    gone->didParseFinished = [](IOSDataParser&, int) { FAIL() << "observer is held weakly"; };
    parser().setDelegate(gone);
  }
  EXPECT_EQ(parser().delegate(), nullptr);
  parser().parseFinished(1);
  EXPECT_TRUE(logs.run().contains("*** -[IOSDataParser parseFinished:] 1, (null)"));
  EXPECT_FALSE(logs.run().contains("******"));
}

// ---- the dispatch table ------------------------------------------------------------------

TEST_F(CoordinatorTest, EmptyListsAndUnknownTypesReportNothing) {
  startPieces();
  parser().analyzeData(parserJson({}), IOSDataTypeContact);
  parser().analyzeData(parserJson({"x"}), kResultPhotoVideos);  // 4 has no parser
  parser().analyzeData(parserJson({"x"}), 0x1);
  parser().analyzeData(mediaJson({}), IOSDataTypeLineMedia);
  parser().analyzeData(parserJson({"c"}), IOSDataTypeCallHistory);  // calls empty
  parser().analyzeData(std::nullopt, IOSDataTypeSMS);
  parser().analyzeData("{broken", IOSDataTypeSMS);
  EXPECT_THAT(observer.fetched(), ElementsAre("fetched 0x800 c"));
}

TEST_F(CoordinatorTest, RowsWithoutAParserClassReportNothing) {
  parser().setDispatchTable(DispatchTable::standard());
  startPieces();
  // Rows with a class find nothing of theirs in a test parser's text either.
  DispatchTable standard = DispatchTable::standard();
  for (const DispatchRow& row : standard.rows()) {
    parser().analyzeData(parserJson({"x"}, {"y"}), row.type);
  }
  EXPECT_TRUE(observer.fetched().empty());
}

TEST_F(CoordinatorTest, ExtraReportsFollowTheRowCodes) {
  startPieces();
  parser().analyzeData(parserJson({"call"}, {}, {"c1"}), IOSDataTypeCallHistory);
  parser().analyzeData(parserJson({"v"}, {"va"}, {"vc"}), IOSDataTypeViber);
  parser().analyzeData(parserJson({"e"}, {"ea"}), IOSDataTypeCalendar);
  parser().analyzeData(parserJson({"s"}, {"sa"}, {"ignored"}), IOSDataTypeSMS);
  parser().analyzeData(parserJson({"p"}, {}, {}, {"pv"}), IOSDataTypePhoto);
  parser().analyzeData(parserJson({"r1"}, {"ra"}), IOSDataTypeReminder);
  parser().analyzeData(parserJson({"r2"}), IOSDataTypeReminder);
  parser().analyzeData(parserJson({"b"}, {"ba"}), IOSDataTypeBook);  // no extra code
  EXPECT_THAT(observer.fetched(), ElementsAre("fetched 0x800 call", "fetched 0x1000 c1",          //
                                              "fetched 0x8000000 v", "fetched 0x20000000 va",     //
                                              "fetched 0x10000000 vc",                            //
                                              "fetched 0x8000 e", "fetched 0x100000000 ea",       //
                                              "fetched 0x80000 s", "fetched 0x100000 sa",         //
                                              "fetched 0x2 p", "fetched 0x4 pv",                  //
                                              "fetched 0x10000 r1", "fetched 0x200000000 ra",     //
                                              "fetched 0x10000 r1,r2", "fetched 0x200000000 ra",  //
                                              "fetched 0x80 b"));
}

TEST_F(CoordinatorTest, WeChatIsReportedThreeTimesAndAccumulates) {
  startPieces();
  parser().analyzeData(parserJson({"w1"}, {"wa1"}), IOSDataTypeWeChat);
  parser().analyzeData(parserJson({"w2"}), IOSDataTypeWeChat);
  EXPECT_THAT(observer.fetched(),
              ElementsAre("fetched 0x40000000 w1", "fetched 0x10000000000 w1",
                          "fetched 0x40000000 w1", "fetched 0x80000000 wa1",
                          "fetched 0x40000000 w1,w2", "fetched 0x10000000000 w1,w2",
                          "fetched 0x40000000 w1,w2", "fetched 0x80000000 wa1"));
}

TEST_F(CoordinatorTest, MediaStreamsFeedTheOtherAttachmentListsAndChatsMergeWithThem) {
  parser().setDeviceBackup(true);
  startPieces();
  parser().analyzeData(mediaJson({"p", "q"}), IOSDataTypeWhatsAppMedia);
  parser().analyzeData(mediaJson({"q"}), IOSDataTypeWhatsAppMedia);  // nothing new, reported again
  parser().analyzeData(parserJson({"chat"}, {"q", "r"}), IOSDataTypeWhatsApp);
  parser().analyzeData(parserJson({"biz"}, {"s"}), IOSDataTypeWhatsAppBusiness);
  parser().analyzeData(mediaJson({"k"}), IOSDataTypeKikOtherMedia);
  parser().analyzeData(parserJson({"kik"}, {"k", "k2"}), IOSDataTypeKik);
  EXPECT_THAT(observer.fetched(),
              ElementsAre("fetched 0x400000 p,q", "fetched 0x400000 p,q",  //
                          "fetched 0x200000 chat", "fetched 0x400000 q,r,p",
                          "fetched 0x400000000 biz", "fetched 0x800000000 s,q,r,p",
                          "fetched 0x1000000 k",  //
                          "fetched 0x800000 kik", "fetched 0x1000000 k,k2"));

  auto* lists = dynamic_cast<IOSOtherAttachmentLists*>(parser().otherAttachmentParser().get());
  ASSERT_NE(lists, nullptr);
  // WhatsApp Business came last: the shared list now holds its merged attachments.
  EXPECT_THAT(testing::itemNames(lists->whatsappAttachments()), ElementsAre("s", "q", "r", "p"));
  EXPECT_THAT(testing::itemNames(lists->kikAttachments()), ElementsAre("k", "k2"));
  EXPECT_EQ(lists->attachmentType(), IOSDataTypeKikOtherMedia);
  // The same items, not copies.
  EXPECT_EQ(lists->whatsappAttachments()[1], testing::namedItem("q"));
  // Fed rows marked for it receive deviceBackup; the other-attachment parser too.
  auto kik = std::dynamic_pointer_cast<testing::TestParser>(parser().kikParser());
  ASSERT_NE(kik, nullptr);
  EXPECT_EQ(kik->switches.back(), std::make_pair(false, true));
  EXPECT_TRUE(parser().otherAttachmentParser()->deviceBackup());
}

TEST_F(CoordinatorTest, DeviceBackupReachesThreeArgumentFactoriesOnly) {
  std::vector<std::pair<IOSDataType, bool>> made;
  DispatchTable table = testing::testDispatchTable();
  for (IOSDataType type : {IOSDataTypeSMS, IOSDataTypeContact}) {
    table.setFactory(type, [&made, type](JSONData data, bool parseDeleted, bool deviceBackup) {
      made.emplace_back(type, deviceBackup);
      return testing::TestParser::parserWithJSONData(data, parseDeleted, deviceBackup);
    });
  }
  EXPECT_FALSE(table.setFactory(IOSDataTypeWeChat, {}));  // a fed row has no factory
  parser().setDispatchTable(table);
  parser().setDeviceBackup(true);
  parser().setParseDeleted(true);
  startPieces();
  parser().analyzeData(parserJson({"a"}), IOSDataTypeSMS);
  parser().analyzeData(parserJson({"b"}), IOSDataTypeContact);
  parser().analyzeData(parserJson({"c"}), IOSDataTypeAppPhoto);
  parser().analyzeData(parserJson({"l"}), IOSDataTypeLine);
  EXPECT_THAT(made, ElementsAre(std::make_pair(IOSDataTypeSMS, true),
                                std::make_pair(IOSDataTypeContact, false)));
  auto appPhoto = std::dynamic_pointer_cast<testing::TestParser>(parser().appPhotoParser());
  ASSERT_NE(appPhoto, nullptr);
  // Not marked for deviceBackup: only parseDeleted is handed on; every parser gets it.
  EXPECT_EQ(appPhoto->switches.back(), std::make_pair(true, false));
  auto line = std::dynamic_pointer_cast<testing::TestParser>(parser().lineParser());
  ASSERT_NE(line, nullptr);
  EXPECT_TRUE(line->switches.back().first);
}

TEST_F(CoordinatorTest, NotesAccumulateAcrossBothNoteRows) {
  startPieces();
  parser().analyzeData(mediaJson({"nm"}), IOSDataTypeNoteMedia);
  parser().analyzeData(parserJson({"n1"}, {"x"}), IOSDataTypeNote);
  parser().analyzeData(parserJson({"n2"}, {"y"}), IOSDataTypeOtherNote);
  parser().analyzeData(parserJson({}), IOSDataTypeOtherNote);
  EXPECT_THAT(observer.fetched(),
              ElementsAre("fetched 0x40000 nm",                          // note media
                          "fetched 0x20000 n1", "fetched 0x40000 x,nm",  // merged with media
                          "fetched 0x20000 n1,n2", "fetched 0x40000 x,nm,y",
                          "fetched 0x20000 n1,n2", "fetched 0x40000 x,nm,y"));
  EXPECT_THAT(testing::itemNames(parser().notes()), ElementsAre("n1", "n2"));
  parser().resetParser();
  EXPECT_TRUE(parser().notes().empty());
  EXPECT_TRUE(parser().notesAttachments().empty());
}

// ---- start operations ----------------------------------------------------------------------

TEST_F(CoordinatorTest, StartOperationsTalkToTheEngine) {
  parser().startParseCFSDataWithBackupPath(dir.str());
  ASSERT_TRUE(observer.waitForEnd());
  ASSERT_TRUE(engine->waitUntilIdle(10s));
  EXPECT_THAT(callNames(*engine),
              ElementsAre("InitPackageData", "StartPackage", "AddTypeNeedScan 8",
                          "AddTypeNeedScan 9", "AddTypeNeedScan 15",
                          "AddTypeBackupFolder " + dir.str(), "AddPackageFileFinish"));
  EXPECT_TRUE(logs.run().contains("*** start parse cfs backup: " + dir.str()));
  EXPECT_TRUE(logs.run().contains("*** end add cfs backup: " + dir.str()));

  auto appEngine = std::make_shared<ReplayEngine>();
  parser().setPackageEngine(appEngine);
  parser().setSelectedDataType(IOSDataTypeWeChat | IOSDataTypeWhatsApp);
  parser().startParseAppWithBackupPath("/backups/app");
  ASSERT_TRUE(appEngine->waitUntilIdle(10s));
  EXPECT_THAT(callNames(*appEngine),
              ElementsAre("InitPackageData", "StartPackage", "AddTypeNeedScan 3",
                          "AddTypeBackupFolder /backups/app", "AddPackageFileFinish"));
  EXPECT_TRUE(logs.run().contains("*** start parse app backup: /backups/app"));
  EXPECT_TRUE(logs.run().contains("*** end add app backup: /backups/app"));

  auto fullEngine = std::make_shared<ReplayEngine>();
  parser().setPackageEngine(fullEngine);
  parser().startParseFullBackupWithPath("/backups/full");
  parser().startParsePhotoWithBackupPath("/backups/photos");
  parser().startParseVoiceMemoWithBackupPath("/backups/memos");
  parser().startParseDeviceBackup();
  EXPECT_THAT(callNames(*fullEngine),
              ElementsAre("InitPackageData", "StartPackage", "AddBackupFolder /backups/full",
                          "AddPhotoBackupFolder /backups/photos",
                          "AddVoiceMemosBackupFolder /backups/memos", "InitPackageData",
                          "StartPackage", "AddTypeNeedScan 0"));
  parser().setPackageEngine(engine);
}

TEST_F(CoordinatorTest, DeviceFilesAreHandedToTheEngineWhenTheyExist) {
  std::string local = dir.write("backup/UDID-1/Library/sms.db", "x");
  parser().parseDeviceFile("HomeDomain/Library/sms.db", local);
  parser().parseDeviceFile("HomeDomain/missing.db", dir.str() + "/missing.db");
  ASSERT_EQ(engine->calls("AddPackageFile").size(), 1u);
  EXPECT_EQ(engine->calls("AddPackageFile")[0].arguments[0],
            "{\"files\" : [ {\"relative_fullpath\" : \"HomeDomain/Library/sms.db\", "
            "\"src_fullpath\" : \"" +
                local + "\"} ]}");

  // The local name is re-rooted below the backup folder from the part after the UDID.
  parser().setCurrentDevice(std::make_shared<BackupDevice>(BackupDevice{"UDID-1", "", ""}));
  parser().backupManagerBackupBegin(dir.str() + "/backup/UDID-1");
  parser().backupManagerDidCompleteOneFile("d", "/elsewhere/UDID-1/Library/sms.db");
  ASSERT_EQ(engine->calls("AddPackageFile").size(), 2u);
  EXPECT_NE(
      engine->calls("AddPackageFile")[1].arguments[0].find("\"src_fullpath\" : \"" + local + "\""),
      std::string::npos);
  // Without the UDID, the whole local name is joined to the backup folder.
  dir.write("backup/UDID-1/elsewhere/x.db", "x");
  parser().backupManagerDidCompleteOneFile("d", "/elsewhere/x.db");
  ASSERT_EQ(engine->calls("AddPackageFile").size(), 3u);
  EXPECT_NE(engine->calls("AddPackageFile")[2].arguments[0].find(
                "\"src_fullpath\" : \"" + dir.str() + "/backup/UDID-1/elsewhere/x.db\""),
            std::string::npos);
  EXPECT_TRUE(parser().backupManagerShouldBackupFile("any", "thing"));
  parser().parseDeviceFileFinished();
  EXPECT_EQ(engine->calls("AddPackageFileFinish").size(), 1u);
}

TEST_F(CoordinatorTest, DeviceBackupHandsEachFileToTheEngineAsItCompletes) {
  testing::RecordingWriter recording(dir, "device");
  recording.block(56, parserJson({"from-device"}));
  dir.write("device/Library/notes.txt", "n");
  auto manager = std::make_shared<FolderBackupManager>();
  parser().setBackupManager(manager);
  // Each completed file must already be with the engine when the next one starts.
  std::vector<std::size_t> filesAtProgress;
  observer.delegate()->backupProgress = [&](IOSDataParser&, float progress) {
    filesAtProgress.push_back(engine->calls("AddPackageFile").size());
    observer.add(fmt::format("backup progress {}", progress));
  };
  auto device =
      std::make_shared<BackupDevice>(BackupDevice{"0000-DEVICE", "phone", recording.path()});
  parser().startBackupAndParse(device, dir.str() + "/backups", 7, false);
  ASSERT_TRUE(observer.waitForEnd());
  manager->waitUntilDone();
  ASSERT_TRUE(engine->waitUntilIdle(10s));

  std::string destination = dir.str() + "/backups/0000-DEVICE";
  EXPECT_EQ(parser().backupPath(), destination);
  EXPECT_EQ(parser().currentDevice(), device);
  EXPECT_THAT(filesAtProgress, ElementsAre(1u, 2u));
  // Backup events come on the manager's thread, scan events on the engine's; each in order.
  std::vector<std::string> backupEvents, scanEvents;
  for (const std::string& event : observer.events()) {
    (event.starts_with("backup") ? backupEvents : scanEvents).push_back(event);
  }
  EXPECT_THAT(backupEvents,
              ElementsAre("backup ready", "backup ready done", "backup begin " + destination,
                          "backup progress 0.5", "backup progress 1", "backup finished 1 0"));
  EXPECT_THAT(scanEvents,
              ElementsAre("began", "fetched 0x80000 from-device", "progress 1", "finished 1"));
  std::vector<ReplayEngine::Call> files = engine->calls("AddPackageFile");
  ASSERT_EQ(files.size(), 2u);
  EXPECT_NE(files[0].arguments[0].find("\"relative_fullpath\" : \"Library/notes.txt\", "
                                       "\"src_fullpath\" : \"" +
                                       destination + "/Library/notes.txt\""),
            std::string::npos);
  EXPECT_NE(files[1].arguments[0].find("stream/000001-56.json"), std::string::npos);
  ASSERT_EQ(manager->requests().size(), 1u);
  EXPECT_FALSE(manager->requests()[0].isIncrement);
  EXPECT_EQ(manager->requests()[0].backupCategory, 7);
}

TEST_F(CoordinatorTest, StopBackupEndsTheDeviceBackup) {
  testing::RecordingWriter recording(dir, "device");
  for (int i = 0; i < 5; ++i)
    recording.block(56, parserJson({"m"}));
  auto manager = std::make_shared<FolderBackupManager>();
  parser().setBackupManager(manager);
  std::atomic<bool> stoppedFlag = false;
  observer.delegate()->backupBegin = [&](IOSDataParser& coordinator, const std::string&) {
    coordinator.stopBackup();
    stoppedFlag = coordinator.backupStoped();
  };
  parser().startBackupAndParse(
      std::make_shared<BackupDevice>(BackupDevice{"U", "", recording.path()}), dir.str() + "/b", 0,
      false);
  ASSERT_TRUE(observer.waitFor("backup finished"));
  manager->waitUntilDone();
  EXPECT_TRUE(stoppedFlag);
  EXPECT_TRUE(
      observer.waitFor("backup finished 0 " + std::to_string(FolderBackupManager::kBackupStopped)));
  // The end of the backup still ends the engine's input.
  ASSERT_TRUE(observer.waitForEnd());
  EXPECT_TRUE(observer.waitFor("finished 1"));
}

TEST_F(CoordinatorTest, BackupAndParseWithoutADeviceParsesThePath) {
  testing::RecordingWriter recording(dir);
  recording.block(56, parserJson({"plain"}));
  parser().startBackupAndParse(nullptr, recording.path(), 0, false);
  ASSERT_TRUE(observer.waitForEnd());
  EXPECT_TRUE(logs.run().contains("*** start parse backup: " + recording.path()));
  EXPECT_THAT(observer.fetched(), ElementsAre("fetched 0x80000 plain"));
}

TEST(CoordinatorJsonTest, EncodeToJosnString) {
  testing::LogCapture logs;
  json::Value object = json::parse("{\"a\": [1, 2], \"b\": \"x\"}");
  std::string text = IOSDataParser::encodeToJosnString(object.view());
  EXPECT_TRUE(text.starts_with("{\n"));
  EXPECT_TRUE(text.ends_with("\n}"));
  EXPECT_NE(text.find("\"b\": \"x\""), std::string::npos);
  EXPECT_EQ(json::parse(text)["b"].string(), "x");
  EXPECT_EQ(IOSDataParser::encodeToJosnString(json::parse("[]").view()), "[]");
  EXPECT_EQ(IOSDataParser::encodeToJosnString(json::View()), "");
  ASSERT_EQ(logs.run().lines().size(), 1u);
  EXPECT_TRUE(logs.run().lines()[0].starts_with("Got an error: "));
}

}  // namespace
}  // namespace dataparser
