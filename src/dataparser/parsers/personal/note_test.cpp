#include "dataparser/parsers/personal/note.h"

#include <gtest/gtest.h>

#include "dataparser/util/text.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

NotePtr noteAt(const IOSBaseParser& parser, std::size_t index) {
  return std::dynamic_pointer_cast<IOSNoteItem>(parser.items().at(index));
}

NotePtr noteOf(const std::string& record) {
  auto note = IOSBaseItem::itemWithDictionary<IOSNoteItem>(json::parse(record));
  note->parseAttachments();
  return note;
}

// The body as texts: a text piece as itself, an attachment as "[kind:name]".
std::vector<std::string> bodyOf(const IOSNoteItem& note) {
  std::vector<std::string> body;
  for (const NoteContent& entry : note.contents()) {
    if (const auto* text = std::get_if<std::string>(&entry)) {
      body.push_back(*text);
    } else {
      const auto& attachment = std::get<std::shared_ptr<IOSAttachmentItem>>(entry);
      body.push_back("[" + std::to_string(attachment->type()) + ":" + attachment->name() + "]");
    }
  }
  return body;
}

TEST(NoteItemTest, BodiesAndTitles) {
  struct Case {
    const char* record;
    std::vector<std::string> body;
    const char* title;
  };
  const Case cases[] = {
      {R"({"title": "Groceries", "contents": [{"type": 1, "content_data": "milk\neggs  "}]})",
       {"milk\neggs  "},
       "Groceries"},
      {R"({"title": "", "contents": [{"type": 1, "content_data": "First line\nsecond"}]})",
       {"First line\nsecond"},
       "First line"},
      {R"({"contents": [{"type": 1, "content_data": "\nstarts with a break"}]})",
       {"\nstarts with a break"},
       ""},
      {R"({"title": "a\nb\n", "contents": []})", {}, "ab"},
      {R"({"contents": [{"type": 3, "table_summary": "Name\tAge\nAnn\t30"},
                        {"type": 1, "content_data": "after"}]})",
       {"Name\tAge\nAnn\t30", "after"},
       "Name\tAge"},
      {R"({"contents": [{"type": 4, "content_data": "clip.mov"}, {"type": 1,
           "content_data": "x"}]})",
       {"[2:clip.mov]", "x"},
       "Social Message Attachment - [a video]"},
      {R"({"contents": [{"type": 2, "content_data": "pic.heic"}]})",
       {"[1:pic.heic]"},
       "Social Message Attachment - [a photo]"},
      {R"({"contents": [{"type": 5, "content_data": "memo.m4a"}]})",
       {"[3:memo.m4a]"},
       "Social Message Attachment - [a audio]"},
      {R"({"contents": [{"type": 6, "content_data": "doc.pdf"}]})",
       {"[4:doc.pdf]"},
       "Social Message Attachment - [a attachment]"},
      {R"({"contents": [{"type": 1, "content_data": ""}, {"type": 1, "content_data": 42},
                        {"type": 3, "table_summary": null}, "junk", 7,
                        {"type": 1, "content_data": "kept"}]})",
       {"kept"},
       "kept"},
      {R"({"contents": "not a list", "text": "<p>hi</p>"})", {}, ""},
      {R"({"contents": {"type": 1}})", {}, ""},
  };
  for (const Case& c : cases) {
    auto note = noteOf(c.record);
    EXPECT_EQ(bodyOf(*note), c.body) << c.record;
    EXPECT_EQ(note->title(), c.title) << c.record;
  }
}

TEST(NoteItemTest, FieldsAndBodyEditing) {
  testing::LogCapture logs;
  auto note = noteOf(R"({"datetime": "06-14-2024 09:12:05", "account": "iCloud",
      "text": "<div><b>Hi</b></div>", "contents": [{"type": 1, "content_data": "Hi"}, "junk"]})");
  EXPECT_EQ(note->strDate(), "2024/06/14 09:12:05");
  ASSERT_TRUE(note->date());
  EXPECT_DOUBLE_EQ(secondsSince1970(*note->date()), 1718356325);
  EXPECT_EQ(note->account(), "iCloud");
  EXPECT_EQ(note->richText(), "<div><b>Hi</b></div>");  // the HTML as it is
  EXPECT_FALSE(note->isThirdNotes());

  auto other = noteOf(R"({"datetime": "2024-06-14", "account": 5, "text": 5})");
  EXPECT_FALSE(other->date());
  EXPECT_EQ(other->strDate(), "");
  EXPECT_EQ(other->account(), "");
  EXPECT_EQ(other->richText(), "");

  auto photo = std::make_shared<IOSAttachmentItem>();
  note->resetContentWithArr({std::string("a"), std::string("id-1"), std::string("id-1")});
  note->replaceValueObj(std::string("id-1"), photo);
  note->replaceValueObj(std::string("id-9"), std::string("x"));
  ASSERT_EQ(note->contents().size(), 3u);
  EXPECT_EQ(std::get<std::shared_ptr<IOSAttachmentItem>>(note->contents()[1]), photo);
  EXPECT_EQ(std::get<std::string>(note->contents()[2]), "id-1");
  EXPECT_EQ(note->contentAttachments(), ItemList{photo});
  EXPECT_EQ(logs.run().lines(),
            (std::vector<std::string>{"*** Note parse error", "Note item Not find attach:id-9"}));
}

TEST(NoteParserTest, NotesAppExport) {
  TempDir dir;
  std::string png = dir.write("n/a.png", "png");
  std::string jpg = dir.write("n/b.jpg", "jpg");
  std::string thumb = dir.write("n/t.jpg", "thumb");
  std::string movie = dir.write("n/v.mov", "movie");
  std::string loose = dir.write("n/loose.m4a", "audio");
  std::string block = R"({"iCloud_notes": {"notes": [
      {"title": "Trip", "datetime": "01-02-2020 03:04:05", "contents": [
         {"type": 1, "content_data": "Pack"},
         {"type": 2, "content_data": "beach", "media_items": [
            {"backup_add_media_png": "/nowhere/x.png", "media_add_path_png": "/var/x.png",
             "backup_add_media_jpg": ")" +
                      jpg + R"(", "media_add_path_jpg": "/var/b.jpg"}]},
         {"type": 4, "content_data": "clip", "media_items": [
            {"backup_video_media": ")" +
                      movie + R"(", "media_video_path": "/var/v.mov",
             "video_thumbs": [{"backup_media": "/nowhere/t0.jpg", "media_path": "/var/t0.jpg"},
                              {"backup_media": ")" +
                      thumb + R"(", "media_path": "/var/t.jpg"}]}]}]},
      {"title": "Gone", "tag": "deleted", "contents": [
         {"type": 2, "media_items": [{"backup_add_media_png": ")" +
                      png + R"(", "media_add_path_png": "/var/a.png"}]}]},
      "junk"],
    "notes_media": [
      {"media_type": 3, "backup_media": ")" +
                      loose + R"(", "media_path": "/var/loose.m4a"},
      {"media_type": 2, "backup_media": ")" +
                      movie + R"(", "media_path": "/var/v.mov"},
      {"media_type": 0, "backup_media": "/nowhere/missing.png", "media_path": "/var/m.png"},
      {"media_type": 9, "backup_media": null, "media_path": null}]}})";
  auto parser = IOSNoteParser::parserWithJSONData(block, false, false);
  ASSERT_EQ(parser->items().size(), 1u);  // the deleted note is left out ...
  auto trip = noteAt(*parser, 0);
  EXPECT_EQ(bodyOf(*trip), (std::vector<std::string>{"Pack", "[1:beach]", "[2:clip]"}));
  auto picture = std::get<std::shared_ptr<IOSAttachmentItem>>(trip->contents()[1]);
  EXPECT_EQ(picture->localPath(), jpg);  // the first pair whose file exists
  EXPECT_EQ(picture->devicePath(), "/var/b.jpg");
  auto clip = std::get<std::shared_ptr<IOSAttachmentItem>>(trip->contents()[2]);
  EXPECT_EQ(clip->localPath(), movie);
  EXPECT_EQ(clip->thumbPath(), thumb);

  // ... but its files are collected. Files: jpg (kind 2 -> video by the file table), movie,
  // thumb, png of the deleted note, the loose audio; the movie again from the loose list and
  // the missing picture are skipped.
  std::vector<std::string> local;
  for (const ItemPtr& item : parser->attachments())
    local.push_back(std::static_pointer_cast<IOSAttachmentItem>(item)->localPath());
  EXPECT_EQ(local, (std::vector<std::string>{jpg, movie, thumb, png, loose}));
  auto audio = std::static_pointer_cast<IOSAttachmentItem>(parser->attachments().back());
  EXPECT_EQ(audio->type(), 3u);
  EXPECT_EQ(audio->mediaType(), 3u);
  EXPECT_EQ(std::static_pointer_cast<IOSAttachmentItem>(parser->attachments()[0])->type(), 2u);

  // On a device backup every named file counts, found or not.
  auto device = IOSNoteParser::parserWithJSONData(block, true, true);
  EXPECT_EQ(device->items().size(), 2u);
  EXPECT_EQ(device->attachments().size(), 9u);

  for (const char* text : {"[]", "{}", R"({"iCloud_notes": []})",
                           R"({"iCloud_notes": {"notes": 5, "notes_media": {}}})", "nope"}) {
    auto none = IOSNoteParser::parserWithJSONData(std::string_view(text), true, false);
    EXPECT_TRUE(none->items().empty()) << text;
    EXPECT_TRUE(none->attachments().empty()) << text;
  }
}

TEST(NoteParserTest, OtherAccountNotes) {
  TempDir dir;
  std::string scan = dir.write("o/scan.pdf", "pdf");
  std::string block = R"({"Other_note": [
      {"account": "Gmail", "title": "", "text": "<html><body><p>Hello &amp; welcome</p><p>Line two</p></body></html>",
       "content": [{"backup_media_path": ")" +
                      scan + R"(", "media_name": "scan.pdf"},
                   {"backup_media_path": "/nowhere/lost.jpg", "media_name": "lost.jpg"},
                   {"backup_media_path": null, "media_name": "x"}, 4]},
      {"account": "Old", "tag": "deleted", "text": "bye"},
      {"account": 3, "text": "plain words"}, "junk"]})";
  auto parser = IOSOtherAccountNoteParser::parserWithJSONData(block, false, false);
  ASSERT_EQ(parser->items().size(), 2u);
  auto gmail = noteAt(*parser, 0);
  EXPECT_TRUE(gmail->isThirdNotes());
  EXPECT_EQ(gmail->account(), "Gmail");
  ASSERT_EQ(gmail->contents().size(), 3u);
  std::string text = std::get<std::string>(gmail->contents()[0]);
  EXPECT_NE(text.find("Hello & welcome"), std::string::npos) << text;
  EXPECT_NE(text.find("Line two"), std::string::npos) << text;
  EXPECT_EQ(gmail->title(), "Hello & welcome");
  ASSERT_EQ(parser->attachments().size(), 1u);  // only the file on disk
  EXPECT_EQ(parser->attachments()[0], gmail->contentAttachments()[0]);
  auto plain = noteAt(*parser, 1);
  EXPECT_EQ(plain->account(), "");
  EXPECT_EQ(bodyOf(*plain), std::vector<std::string>{"plain words"});

  EXPECT_EQ(IOSOtherAccountNoteParser::parserWithJSONData(block, true, true)->items().size(), 3u);
  EXPECT_EQ(IOSOtherAccountNoteParser::parserWithJSONData(block, true, true)->attachments().size(),
            2u);
  EXPECT_TRUE(
      IOSOtherAccountNoteParser::parserWithJSONData(R"({"Other_note": {"a": 1}})", true, false)
          ->items()
          .empty());
}

TEST(NoteItemTest, ICloudNotes) {
  TempDir dir;
  const std::string mark = "\xEF\xBF\xBC";
  struct Case {
    std::string text;
    const char* attachments;
    std::vector<std::string> body;
  };
  const Case cases[] = {
      {mark + "rest of the text", R"(["A"])", {"A", "rest of the text"}},
      {"before" + mark + "middle" + mark + "after",
       R"(["A", "B"])",
       {"before", "A", "middle", "B", "after"}},
      {"#keep# the hashes#", "[]", {"#keep# the hashes#"}},
      {"ends with" + mark, R"(["A"])", {"ends with", "A"}},
      {mark + mark, R"(["A", "B"])", {"A", "B"}},
      {"no marks", R"(["A"])", {"no marks", "A"}},
      {"", "[]", {}},
  };
  for (const Case& c : cases) {
    json::Value text = json::parse(std::string(R"({"t": ")") + c.text + "\"}");
    std::string record = R"({"uuid": "n1", "title": "T", "attachments": )" +
                         std::string(c.attachments) + R"(, "text": )" + text["t"].toJsonText() +
                         "}";
    IOSNoteItem note;
    note.initWithiCloudNoteDict(json::parse(record));
    EXPECT_EQ(bodyOf(note), c.body) << c.text;
  }

  IOSNoteItem note;
  note.initWithiCloudNoteDict(json::parse(R"({"uuid": "n2", "modified": 1615107900123,
      "attachments": ["att-1", 7], "medias": ["med-1"], "text": "Shopping\nmilk"})"));
  EXPECT_EQ(note.uuid(), "n2");
  EXPECT_EQ(note.strDate(), "2021/03/07 09:05:00");
  ASSERT_TRUE(note.date());
  EXPECT_DOUBLE_EQ(secondsSince1970(*note.date()), 1615107900);
  EXPECT_EQ(note.attachmentUUIDs(), std::vector<std::string>{"att-1"});
  EXPECT_EQ(note.mediaUUIDs(), std::vector<std::string>{"med-1"});
  EXPECT_EQ(note.title(), "Shopping");
  EXPECT_FALSE(note.isLock());

  IOSNoteItem locked;
  locked.initWithiCloudNoteDict(json::parse(R"({"uuid": "n3", "locked": true, "text": "secret",
      "locked_ciphertext": "Y2lwaGVy", "locked_hint": "pet", "locked_key": "a2V5",
      "locked_salt": "c2FsdA==", "locked_tag": "dGFn", "locked_vector": "dmVj",
      "locked_iteration": 20000})"));
  EXPECT_TRUE(locked.isLock());
  EXPECT_TRUE(locked.contents().empty());
  ASSERT_EQ(locked.lockedInfo().size(), 7u);
  EXPECT_EQ(locked.lockedInfo().at("locked_hint").view().string(), "pet");
  EXPECT_EQ(locked.lockedInfo().at("locked_iteration").view().integer(), 20000);
  IOSNoteItem lockedEmpty;
  lockedEmpty.initWithiCloudNoteDict(json::parse(R"({"locked": true, "locked_hint": null})"));
  EXPECT_TRUE(lockedEmpty.isLock());
  EXPECT_TRUE(lockedEmpty.lockedInfo().empty());
  EXPECT_TRUE(lockedEmpty.contents().empty());

  std::string drawing = dir.write(md5String("d-1") + ".png", "png");
  auto attachment = note.parseNoteAttachmentsWithiCloudDict(
      json::parse(R"({"uuid": "d-1", "type": "com.apple.drawing", "size": 3, "parent": "n2",
                      "url": "https://f/d", "title": "Sketch"})"),
      dir.str());
  EXPECT_EQ(attachment->localPath(), drawing);
  EXPECT_EQ(attachment->name(), "Sketch");
  EXPECT_EQ(attachment->parentUUID(), "n2");
  EXPECT_EQ(attachment->uuid(), "d-1");
  auto file = note.parseNoteAttachmentsWithiCloudDict(
      json::parse(R"({"uuid": "f-1", "type": "jpeg", "url": "https://f/1"})"), dir.str());
  EXPECT_EQ(file->localPath(), "");
  EXPECT_EQ(file->name(), md5String("f-1") + ".jpeg");
  EXPECT_EQ(file->extension(), "jpeg");
  auto media = note.parseNoteMediaWithiCloudDict(
      json::parse(R"({"uuid": "m-1", "name": "voice.m4a", "size": 9, "url": "https://f/m"})"),
      dir.str());
  EXPECT_EQ(media->name(), "voice.m4a");
  EXPECT_EQ(media->size(), 9);
  EXPECT_EQ(media->localPath(), "");
}

TEST(NoteParserTest, ICloudNotesJoinTheirAttachmentsAndMedia) {
  TempDir dir;
  const std::string mark = "\xEF\xBF\xBC";
  IOSNoteParser parser;
  parser.setBackupPath(dir.str());
  parser.addiCloudJSONData(R"({"notes": [
      {"uuid": "n1", "text": "Look)" +
                           mark + R"(and)" + mark + R"(end",
       "attachments": ["A1", "A2"], "medias": ["M1"]},
      {"uuid": "n2", "text": "no attachments"},
      {"uuid": "n3", "text": ")" +
                           mark + R"(", "attachments": ["A9"]}, 5]})");
  ASSERT_EQ(parser.items().size(), 3u);
  auto first = noteAt(parser, 0);
  parser.parseriCloudAttachmentsForItem(first, R"({"attachments": [
      {"uuid": "A1", "type": "com.apple.notes.gallery", "title": "Scan"},
      {"uuid": "A2", "type": "com.apple.paper", "MediaUUID": "M1", "AttachmentUUID": "A2x"}]})");
  parser.parseriCloudMediasForItem(first, R"({"medias": [{"uuid": "M1", "name": "pic.jpg"}]})");
  parser.parseriCloudMediasForItem(nullptr, R"({"medias": []})");
  parser.parseriCloudAttachmentsForItem(nullptr, "not json");
  ASSERT_EQ(parser.attachmentsArr().size(), 2u);
  ASSERT_EQ(parser.mediaArr().size(), 1u);
  ASSERT_TRUE(parser.mediaDictArr());
  EXPECT_EQ(parser.allAttachmentsAndMedias().size(), 3u);

  // "A2" is an attachment of its own uuid; a medium stands in only for the linked "A2x".
  first->resetContentWithArr({std::string("Look"), std::string("A1"), std::string("A2x"),
                              std::string("end"), std::string("zz")});
  parser.matchAttachments();
  EXPECT_EQ(bodyOf(*first),
            (std::vector<std::string>{"Look", "[7:Scan]", "[1:pic.jpg]", "end", "zz"}));
  parser.matchAttachments();  // already joined pieces stay as they are
  EXPECT_EQ(bodyOf(*first).size(), 5u);
  EXPECT_EQ(bodyOf(*noteAt(parser, 2)), std::vector<std::string>{"A9"});  // nothing matched

  IOSNoteParser empty;
  for (const char* bad : {"", "[]", R"({"notes": []})", R"({"notes": {"a": 1}})", "x"})
    empty.addiCloudJSONData(std::string_view(bad));
  EXPECT_TRUE(empty.items().empty());
}

}  // namespace
}  // namespace dataparser
