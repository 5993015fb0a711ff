#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "dataparser/core/ios_data_parser.h"
#include "dataparser/icloud/album.h"
#include "dataparser/icloud/backup_info.h"
#include "dataparser/parsers/media/photo.h"
#include "dataparser/parsers/personal/contacts.h"
#include "dataparser/parsers/personal/note.h"
#include "dataparser/util/text.h"
#include "tests/scan_support.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::LogCapture;
using testing::TempDir;

// An XML property list whose root dictionary holds `entries` (key, raw XML value).
std::string xmlPlist(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>";
  for (const auto& [key, value] : entries)
    text += "<key>" + key + "</key>" + value;
  return text + "</dict></plist>";
}
std::string str(const std::string& text) {
  return "<string>" + text + "</string>";
}
std::string arr(const std::vector<std::string>& values) {
  std::string text = "<array>";
  for (const std::string& value : values)
    text += str(value);
  return text + "</array>";
}

// Every report as "0xCODE:count", in order.
class ICloudTest : public ::testing::Test {
 protected:
  void SetUp() override {
    observer = std::make_shared<IOSDataParserDelegate>();
    observer->didFetchedData = [this](IOSDataParser&, ItemList items, IOSDataType type) {
      std::lock_guard lock(mutex);
      reports.push_back(testing::hex(type) + ":" + std::to_string(items.size()));
      lists.push_back(std::move(items));
    };
    parser().setDelegate(observer);
    parser().setupiCloudParser();
  }
  void TearDown() override {
    parser().releaseiCloudParser();
    parser().setDelegate({});
  }
  static IOSDataParser& parser() { return IOSDataParser::shared(); }

  // A folder with every kind of record; `index` overrides or adds index entries.
  void writeAccount(std::vector<std::pair<std::string, std::string>> extra = {}) {
    dir.write("contacts.json", R"({"contactArr": [{"contactId": "C1", "firstName": "Ann"},
        {"contactId": "C2", "firstName": "Bo"}]})");
    dir.write("calendar.json", R"({"collections": [{"guid": "home", "title": "Home"}],
        "events": [{"guid": "e1", "parent": "home", "title": "Lunch",
          "attachments": [{"name": "menu.jpg", "size": 4, "url": "https://f/1", "uuid": "u-1"},
                          {"name": "menu.jpg", "size": 4, "url": "https://f/1", "uuid": "u-1"}]},
          {"guid": "e2", "parent": "home", "title": "Plain"}]})");
    dir.write(md5String("u-1") + ".jpg", "jpeg");
    const std::string mark = "\xEF\xBF\xBC";
    dir.write("notes.json", R"({"notes": [{"uuid": "n1", "text": "See )" + mark +
                                R"(", "attachments": ["A1"], "medias": ["M1"]},
        {"uuid": "n2", "text": "plain"}]})");
    dir.write("note_attachments.json",
              R"({"attachments": [{"uuid": "A1", "type": "public.jpeg", "title": "Pic"}]})");
    dir.write("note_medias.json", R"({"medias": [{"uuid": "M1", "name": "pic.jpg"}]})");
    dir.write("lists.json", R"({"lists": [{"name": "Family", "uuid": "L1"}]})");
    dir.write("alarms.json", R"({"alarms": [{"uuid": "al1", "type": "Location",
        "address": "1 Loop", "proximity": "leaving"}]})");
    dir.write("reminders.json", R"({"reminders": [
        {"uuid": "a", "title": "Milk", "parent": "L1", "alarms": ["al1"]},
        {"uuid": "b", "title": "Bread", "parent": "L1"}]})");
    dir.write("low.json", R"({"lists": [{"title": "Home", "uuid": "H"}],
        "reminders": [{"title": "Water", "parent": "H", "uuid": "w"}]})");
    dir.write("albums1.json", R"({"albums": [{"album_guid": "G1", "album_name": "One"}]})");
    dir.write("albums2.json", R"({"albums": [{"album_guid": "G2", "album_name": "Two"}, 4]})");
    std::string pictures = R"({"photos": [
        {"imageUuid": "P1", "imageName": "IMG_1.jpg", "imageType": "public.jpeg",
         "imageUrl": "http://x/1", "imageSize": 3},
        {"imageUuid": "V1", "imageName": "MOV_1.mp4", "imageType": "public.mpeg-4",
         "imageUrl": "http://x/2", "imageSize": 5},
        {"imageUuid": "P2", "imageName": "IMG_2.jpg", "imageType": "public.jpeg",
         "imageUrl": "http://x/3"}]})";
    dir.write("photos1.json", pictures);
    dir.write("photos2.json", pictures);
    dir.write(md5String("P1") + ".jpg", "jpg");
    dir.write(md5String("V1") + ".mp4", "mp4");
    std::map<std::string, std::string> index = {
        {"ContactInfo", str("contacts.json")},
        {"CalendarInfo", arr({"calendar.json"})},
        {"NotesInfo", str("notes.json")},
        {"NotesAttachmentsInfo", str("note_attachments.json")},
        {"NotesMediasInfo", arr({"note_medias.json"})},
        {"ReminderVersion", "<integer>1</integer>"},
        {"HeightReminderList", str("lists.json")},
        {"HeightReminderAlarmsInfo", str("alarms.json")},
        {"HeightReminderInfos", str("reminders.json")},
        {"LowReminderList", str("low.json")},
        {"AlbumsInfo", arr({"albums1.json", "albums2.json"})},
        {"G1", str("photos1.json")},
        {"G2", arr({"photos2.json"})},
    };
    for (auto& [key, value] : extra) {
      if (value.empty()) {
        index.erase(key);
      } else {
        index[key] = value;
      }
    }
    dir.write("BackupInfo.plist", xmlPlist({index.begin(), index.end()}));
  }

  std::vector<std::string> run() {
    parser().startParseiCloudBackupWithPath(dir.str());
    std::lock_guard lock(mutex);
    return reports;
  }

  TempDir dir;
  std::shared_ptr<IOSDataParserDelegate> observer;
  std::mutex mutex;
  std::vector<std::string> reports;
  std::vector<ItemList> lists;
};

TEST_F(ICloudTest, AWholeAccountReportsEveryListUnderItsCode) {
  writeAccount();
  EXPECT_EQ(run(), (std::vector<std::string>{
                       "0x400:2",        // contacts, after their one file
                       "0x8000:2",       // events
                       "0x100000000:1",  // the attachment file, named twice, once
                       "0x20000:2",      // notes
                       "0x40000:2",      // the note's attachment and medium
                       "0x10000:2",      // the newer reminder store, once
                       "0x2:1",          // the picture on disk, listed by two albums, once
                       "0x4:1",          // the video on disk
                   }));
  // The note's body now holds its attachment in place of the identifier.
  auto note = std::dynamic_pointer_cast<IOSNoteItem>(lists[3][0]);
  ASSERT_TRUE(note);
  EXPECT_EQ(note->contentAttachments().size(), 1u);
  // Both album files were read: the parser holds every picture twice.
  EXPECT_EQ(parser().icloudParser(IOSDataParser::ICloudParser::kPhoto)->items().size(), 6u);
}

TEST_F(ICloudTest, IndexVariantsChangeOnlyTheirOwnReports) {
  struct Case {
    const char* name;
    std::vector<std::pair<std::string, std::string>> index;
    std::vector<std::string> expected;
  };
  const std::vector<Case> cases = {
      {"contacts as a one-entry list",
       {{"ContactInfo", arr({"contacts.json"})},
        {"CalendarInfo", ""},
        {"NotesInfo", ""},
        {"AlbumsInfo", ""},
        {"ReminderVersion", ""}},
       {"0x400:2"}},
      // A present "NotesInfo" naming nothing still reads the attachments; a text version is
      // not 1, so the older store is read.
      {"wrong-typed values name nothing",
       {{"ContactInfo", "<integer>5</integer>"},
        {"CalendarInfo", "<true/>"},
        {"NotesInfo", "<dict/>"},
        {"ReminderVersion", str("1")},
        {"AlbumsInfo", ""}},
       {"0x40000:2", "0x10000:1"}},
      {"newer version without its lists parses no reminders",
       {{"HeightReminderList", ""},
        {"ContactInfo", ""},
        {"CalendarInfo", ""},
        {"NotesInfo", ""},
        {"AlbumsInfo", ""}},
       {}},
      {"older version reads the older store",
       {{"ReminderVersion", "<integer>0</integer>"},
        {"ContactInfo", ""},
        {"CalendarInfo", ""},
        {"NotesInfo", ""},
        {"AlbumsInfo", ""}},
       {"0x10000:1"}},
      {"older version without its store",
       {{"ReminderVersion", "<integer>0</integer>"},
        {"LowReminderList", ""},
        {"ContactInfo", ""},
        {"CalendarInfo", ""},
        {"NotesInfo", ""},
        {"AlbumsInfo", ""}},
       {}},
      {"no albums, no pictures even with guid keys",
       {{"AlbumsInfo", str("contacts.json")},
        {"ContactInfo", ""},
        {"CalendarInfo", ""},
        {"NotesInfo", ""},
        {"ReminderVersion", ""}},
       {}},
      {"missing, empty, non-JSON and escaping files are skipped",
       {{"ContactInfo", arr({"nowhere.json", "empty.json", "bad.json", "../contacts.json",
                             "/etc/passwd", "contacts.json"})},
        {"CalendarInfo", str("bad.json")},
        {"NotesInfo", ""},
        {"AlbumsInfo", ""},
        {"ReminderVersion", ""}},
       {"0x400:2"}},
      {"a link leaving the folder is skipped",
       {{"ContactInfo", arr({"elsewhere.json", "contacts.json"})},
        {"CalendarInfo", ""},
        {"NotesInfo", ""},
        {"AlbumsInfo", ""},
        {"ReminderVersion", ""}},
       {"0x400:2"}},
  };
  TempDir outside;
  std::filesystem::create_symlink(
      outside.write("contacts.json", R"({"contactArr": [{"contactId": "X", "firstName": "Eve"}]})"),
      dir.path() / "elsewhere.json");
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    reports.clear();
    lists.clear();
    parser().setupiCloudParser();
    writeAccount(test.index);
    dir.write("empty.json", "");
    dir.write("bad.json", "{not json");
    EXPECT_EQ(run(), test.expected);
  }
}

TEST_F(ICloudTest, BadIndexesGiveNothingAndAMissingOneIsLogged) {
  LogCapture logs;
  parser().startParseiCloudBackupWithPath(dir.str());
  ASSERT_EQ(logs.run().lines().size(), 1u);
  EXPECT_EQ(logs.run().lines()[0], "backup not exist:" + dir.str() + "/BackupInfo.plist");

  const std::vector<std::pair<const char*, std::string>> indexes = {
      {"empty", ""},
      {"not a plist", "hello"},
      {"root is a list", "<plist version=\"1.0\"><array><string>a</string></array></plist>"},
      {"empty dictionary", xmlPlist({})},
  };
  for (const auto& [name, text] : indexes) {
    SCOPED_TRACE(name);
    dir.write("BackupInfo.plist", text);
    EXPECT_FALSE(parser().icloudBackupInfoDictWithPath(dir.str()).present());
    EXPECT_TRUE(run().empty());
  }
}

TEST(ICloudBackupInfo, BinaryAndXmlPropertyListsReadAlike) {
  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "ContactInfo", plist_new_string("c.json"));
  plist_t list = plist_new_array();
  plist_array_append_item(list, plist_new_string("a.json"));
  plist_array_append_item(list, plist_new_uint(7));
  plist_dict_set_item(root, "AlbumsInfo", list);
  plist_dict_set_item(root, "ReminderVersion", plist_new_uint(1));
  plist_dict_set_item(root, "Blob", plist_new_data("\0\1", 2));
  for (bool binary : {false, true}) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    if (binary) {
      plist_to_bin(root, &bytes, &length);
    } else {
      plist_to_xml(root, &bytes, &length);
    }
    json::Value info = icloud::backupInfoFromBytes(std::string_view(bytes, length));
    free(bytes);  // NOLINT: allocated by libplist
    ASSERT_TRUE(info.isObject()) << binary;
    EXPECT_EQ(info["ContactInfo"].string(), "c.json");
    EXPECT_EQ(info["ReminderVersion"].integer(), 1);
    EXPECT_TRUE(info["Blob"].isNull());
    icloud::ListedFiles files = icloud::listedFiles("/b", info["AlbumsInfo"]);
    EXPECT_TRUE(files.isList);
    EXPECT_EQ(files.paths, std::vector<std::string>{"/b/a.json"});
  }
  plist_free(root);
}

TEST_F(ICloudTest, StreamedTextsReportWhatIsReadyAndReturnWhatWaits) {
  // Albums: the deleted-pictures album is kept and marked.
  ItemList albums = parser().startParseiCloudAlbumsWithJSON(R"({"albums": [
      {"album_guid": "CPLAssetDeletedAndMasterByExpungedDate", "time_created": 1000,
       "album_type": 3, "item_count": 2},
      {"album_guid": 5, "album_name": "Trip", "time_created": 0}]})");
  ASSERT_EQ(albums.size(), 2u);
  auto deleted = std::static_pointer_cast<iCloudiOSAlbumItem>(albums[0]);
  EXPECT_TRUE(deleted->isDeleted());
  EXPECT_TRUE(deleted->createdDate());
  EXPECT_EQ(deleted->photoCount(), 2);
  auto trip = std::static_pointer_cast<iCloudiOSAlbumItem>(albums[1]);
  EXPECT_FALSE(trip->isDeleted());
  EXPECT_EQ(trip->guid(), "");
  EXPECT_FALSE(trip->createdDate());
  parser().startParseiCloudAlbumPhototsForAlbum(
      albums[0], R"({"photos": [{"imageUuid": "P", "imageName": "a.jpg"}]})");
  auto photo = std::dynamic_pointer_cast<IOSPhotoItem>(
      parser().icloudParser(IOSDataParser::ICloudParser::kPhoto)->items().at(0));
  EXPECT_TRUE(photo->isDeleted());

  // Contacts: shown only once their picture is on disk or when they have none.
  parser().startParseiCloudContactWithJSON(R"({"contactArr": [
      {"contactId": "1", "firstName": "NoPicture"},
      {"contactId": "2", "firstName": "Waiting", "photo": {"url": "https://p/x/abc"}}]})",
                                           dir.str());
  EXPECT_EQ(reports, std::vector<std::string>{"0x400:1"});
  ASSERT_EQ(parser().needDownloadIconContacts().size(), 1u);
  EXPECT_EQ(
      std::static_pointer_cast<IOSContactItem>(parser().needDownloadIconContacts()[0])->first(),
      "Waiting");

  // Notes: all waiting means no report, every note returned.
  reports.clear();
  auto waiting = parser().startParseiCloudNoteWithJSON(
      R"({"notes": [{"uuid": "n1", "text": "x", "attachments": ["A1"]}]})");
  ASSERT_TRUE(waiting);
  EXPECT_EQ(waiting->size(), 1u);
  EXPECT_TRUE(parser().icloudNoteShowArr().empty());
  EXPECT_TRUE(reports.empty());
  // A text that is not JSON adds nothing; the note read before still waits.
  waiting = parser().startParseiCloudNoteWithJSON("not json");
  ASSERT_TRUE(waiting);
  EXPECT_EQ(waiting->size(), 1u);

  // Reminders: the one with alarms waits, then joins the shown list with its alarms.
  ItemList reminderLists = parser().startParseiCloudReminderListWithJSON(
      R"({"lists": [{"name": "Family", "uuid": "L1"}]})");
  auto pending = parser().startParseiCloudRemindersInfoWithJSON(
      R"({"reminders": [{"uuid": "a", "parent": "L1", "alarms": ["al1"]},
                         {"uuid": "b", "parent": "L1"}]})",
      reminderLists);
  ASSERT_TRUE(pending);
  ASSERT_EQ(pending->size(), 1u);
  EXPECT_EQ(reports, std::vector<std::string>{"0x10000:1"});
  parser().startParseiCloudReminderAlarmsInfoForItem(albums[0], "{}");  // not a reminder
  parser().startParseiCloudReminderAlarmsInfoForItem(
      (*pending)[0], R"({"alarms": [{"uuid": "al1", "type": "Location", "address": "Home"}]})");
  EXPECT_EQ(reports, (std::vector<std::string>{"0x10000:1", "0x10000:2"}));
  EXPECT_FALSE(parser().startParseiCloudRemindersInfoWithJSON("", reminderLists));
}

}  // namespace
}  // namespace dataparser
