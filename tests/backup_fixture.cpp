#include "tests/backup_fixture.h"

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

#include "dataparser/engine/ios_backup/backup_manifest.h"

namespace dataparser::testing {
namespace {

namespace fs = std::filesystem;

void writeBytes(const std::string& path, std::string_view bytes) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string manifestPlist(bool encrypted) {
  return std::string(
             "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
             "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
             "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
             "<plist version=\"1.0\"><dict>\n"
             "<key>IsEncrypted</key>") +
         (encrypted ? "<true/>" : "<false/>") +
         "\n<key>Version</key><string>10.0</string>\n</dict></plist>\n";
}

// 2024-06-14 09:12:05 UTC in seconds since 2001.
constexpr std::int64_t kBaseDate = 740049125;

}  // namespace

TestDatabase::TestDatabase(const std::string& path) {
  fs::create_directories(fs::path(path).parent_path());
  if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK) {
    std::fprintf(stderr, "cannot open %s\n", path.c_str());
    std::abort();
  }
}

TestDatabase::~TestDatabase() {
  sqlite3_close(db_);
}

void TestDatabase::exec(std::string_view sql) {
  char* message = nullptr;
  if (sqlite3_exec(db_, std::string(sql).c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
    std::fprintf(stderr, "fixture SQL failed: %s\n%.*s\n", message ? message : "",
                 static_cast<int>(sql.size()), sql.data());
    std::abort();
  }
}

BackupBuilder::BackupBuilder(std::string folder, bool encrypted) : folder_(std::move(folder)) {
  fs::create_directories(folder_);
  writeBytes(folder_ + "/Manifest.plist", manifestPlist(encrypted));
  manifest_ = new TestDatabase(folder_ + "/Manifest.db");
  manifest_->exec(
      "CREATE TABLE Files (fileID TEXT PRIMARY KEY, domain TEXT, relativePath TEXT, flags "
      "INTEGER, file BLOB);"
      "CREATE INDEX FilesDomainIdx ON Files(domain);"
      "CREATE TABLE Properties (key TEXT PRIMARY KEY, value BLOB);");
}

BackupBuilder::~BackupBuilder() {
  delete manifest_;
}

std::string BackupBuilder::add(std::string_view domain, std::string_view relativePath) {
  const std::string id = backupFileID(domain, relativePath);
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(manifest_->handle(), "INSERT OR REPLACE INTO Files VALUES (?, ?, ?, 1, NULL)",
                     -1, &insert, nullptr);
  sqlite3_bind_text(insert, 1, id.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_text(insert, 2, domain.data(), static_cast<int>(domain.size()), SQLITE_TRANSIENT);
  sqlite3_bind_text(insert, 3, relativePath.data(), static_cast<int>(relativePath.size()),
                    SQLITE_TRANSIENT);
  sqlite3_step(insert);
  sqlite3_finalize(insert);
  const std::string path = folder_ + "/" + id.substr(0, 2) + "/" + id;
  fs::create_directories(fs::path(path).parent_path());
  return path;
}

std::string BackupBuilder::addFile(std::string_view domain, std::string_view relativePath,
                                   std::string_view bytes) {
  std::string path = add(domain, relativePath);
  writeBytes(path, bytes);
  return path;
}

void createMessagesSchema(TestDatabase& db) {
  db.exec(
      "CREATE TABLE chat (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, "
      "style INTEGER, state INTEGER, account_id TEXT, properties BLOB, chat_identifier TEXT, "
      "service_name TEXT, room_name TEXT, account_login TEXT, is_archived INTEGER DEFAULT 0, "
      "display_name TEXT, group_id TEXT);"
      "CREATE TABLE handle (ROWID INTEGER PRIMARY KEY AUTOINCREMENT UNIQUE, id TEXT NOT NULL, "
      "country TEXT, service TEXT NOT NULL, uncanonicalized_id TEXT);"
      "CREATE TABLE chat_handle_join (chat_id INTEGER, handle_id INTEGER, "
      "UNIQUE(chat_id, handle_id));"
      "CREATE TABLE message (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT NULL, "
      "text TEXT, handle_id INTEGER DEFAULT 0, subject TEXT, attributedBody BLOB, service TEXT, "
      "account TEXT, error INTEGER DEFAULT 0, date INTEGER, date_read INTEGER, "
      "is_delivered INTEGER DEFAULT 0, is_from_me INTEGER DEFAULT 0, "
      "cache_has_attachments INTEGER DEFAULT 0, destination_caller_id TEXT);"
      "CREATE TABLE chat_message_join (chat_id INTEGER, message_id INTEGER, message_date "
      "INTEGER DEFAULT 0, PRIMARY KEY (chat_id, message_id));"
      "CREATE TABLE attachment (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, guid TEXT UNIQUE NOT "
      "NULL, filename TEXT, uti TEXT, mime_type TEXT, transfer_name TEXT, total_bytes INTEGER);"
      "CREATE TABLE message_attachment_join (message_id INTEGER, attachment_id INTEGER, "
      "UNIQUE(message_id, attachment_id));"
      "CREATE TABLE chat_recoverable_message_join (chat_id INTEGER, message_id INTEGER, "
      "delete_date INTEGER, PRIMARY KEY (chat_id, message_id));");
}

void createAddressBookSchema(TestDatabase& db) {
  db.exec(
      "CREATE TABLE ABPerson (ROWID INTEGER PRIMARY KEY AUTOINCREMENT, First TEXT, Last TEXT, "
      "Middle TEXT, FirstPhonetic TEXT, MiddlePhonetic TEXT, LastPhonetic TEXT, Organization "
      "TEXT, Department TEXT, Note TEXT, Kind INTEGER, Birthday TEXT, JobTitle TEXT, Nickname "
      "TEXT, Prefix TEXT, Suffix TEXT, CreationDate INTEGER, ModificationDate INTEGER, guid "
      "TEXT);"
      "CREATE TABLE ABMultiValue (UID INTEGER PRIMARY KEY, record_id INTEGER, property "
      "INTEGER, identifier INTEGER, label INTEGER, value TEXT, guid TEXT);"
      "CREATE TABLE ABMultiValueLabel (value TEXT, UNIQUE(value));"
      "CREATE TABLE ABMultiValueEntry (parent_id INTEGER, key INTEGER, value TEXT, "
      "UNIQUE(parent_id, key));"
      "CREATE TABLE ABMultiValueEntryKey (value TEXT, UNIQUE(value));");
}

void createAddressBookImagesSchema(TestDatabase& db) {
  db.exec(
      "CREATE TABLE ABThumbnailImage (record_id INTEGER, format INTEGER, derived_from_format "
      "INTEGER, data BLOB, UNIQUE(record_id, format));"
      "CREATE TABLE ABFullSizeImage (record_id INTEGER, crop_x INTEGER, crop_y INTEGER, "
      "crop_width INTEGER, data BLOB, UNIQUE(record_id));");
}

void createCallHistorySchema(TestDatabase& db) {
  // No ZLOCALADDRESS: older systems lack it.
  db.exec(
      "CREATE TABLE ZCALLRECORD (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER, "
      "ZANSWERED INTEGER, ZCALLTYPE INTEGER, ZDISCONNECTED_CAUSE INTEGER, ZORIGINATED INTEGER, "
      "ZREAD INTEGER, ZDATE TIMESTAMP, ZDURATION FLOAT, ZADDRESS VARCHAR, ZISO_COUNTRY_CODE "
      "VARCHAR, ZLOCATION VARCHAR, ZNAME VARCHAR, ZSERVICE_PROVIDER VARCHAR, ZUNIQUE_ID "
      "VARCHAR);");
}

void fillMessages(TestDatabase& db, std::int64_t messages, std::int64_t conversations,
                  std::uint32_t seed) {
  std::mt19937 random(seed);
  db.exec("BEGIN");
  for (std::int64_t chat = 1; chat <= conversations; ++chat) {
    const std::string number = "+1555" + std::to_string(1000000 + chat);
    db.exec("INSERT INTO handle (ROWID, id, service) VALUES (" + std::to_string(chat) + ", '" +
            number +
            "', 'iMessage');"
            "INSERT INTO chat (ROWID, guid, style, chat_identifier, service_name) VALUES (" +
            std::to_string(chat) + ", 'iMessage;-;" + number + "', 45, '" + number +
            "', 'iMessage');"
            "INSERT INTO chat_handle_join VALUES (" +
            std::to_string(chat) + ", " + std::to_string(chat) + ");");
  }
  sqlite3_stmt* message = nullptr;
  sqlite3_stmt* join = nullptr;
  sqlite3_prepare_v2(db.handle(),
                     "INSERT INTO message (ROWID, guid, text, handle_id, service, account, date, "
                     "is_from_me, destination_caller_id) VALUES (?, ?, ?, ?, 'iMessage', "
                     "'p:+15550100', ?, ?, '+15550100')",
                     -1, &message, nullptr);
  sqlite3_prepare_v2(db.handle(), "INSERT INTO chat_message_join VALUES (?, ?, ?)", -1, &join,
                     nullptr);
  static constexpr std::string_view kWords[] = {"see",      "you",    "at",     "the",   "pier",
                                                "tomorrow", "photos", "coffee", "later", "thanks"};
  std::string text;
  for (std::int64_t id = 1; id <= messages; ++id) {
    const std::int64_t chat = 1 + static_cast<std::int64_t>(random() % conversations);
    text.clear();
    for (int words = 2 + static_cast<int>(random() % 10); words > 0; --words) {
      if (!text.empty()) text += ' ';
      text += kWords[random() % std::size(kWords)];
    }
    const std::int64_t date = (kBaseDate + id * 30) * 1000000000LL;
    const std::string guid = "m" + std::to_string(id);
    sqlite3_bind_int64(message, 1, id);
    sqlite3_bind_text(message, 2, guid.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_text(message, 3, text.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int64(message, 4, chat);
    sqlite3_bind_int64(message, 5, date);
    sqlite3_bind_int64(message, 6, static_cast<std::int64_t>(random() % 2));
    sqlite3_step(message);
    sqlite3_reset(message);
    sqlite3_bind_int64(join, 1, chat);
    sqlite3_bind_int64(join, 2, id);
    sqlite3_bind_int64(join, 3, date);
    sqlite3_step(join);
    sqlite3_reset(join);
  }
  sqlite3_finalize(message);
  sqlite3_finalize(join);
  db.exec("COMMIT");
}

void writeSampleBackup(const std::string& folder, std::string_view picture) {
  BackupBuilder backup(folder);
  {
    TestDatabase db(backup.add("HomeDomain", "Library/AddressBook/AddressBook.sqlitedb"));
    createAddressBookSchema(db);
    db.exec(
        "INSERT INTO ABPerson (ROWID, First, Last, Organization, Birthday, guid) VALUES "
        "(1, 'Ann', 'Lee', 'Pier Co', '-504921600', 'G-ANN');"
        "INSERT INTO ABPerson (ROWID, First, JobTitle) VALUES (2, 'Bob', 'Skipper');"
        "INSERT INTO ABMultiValueLabel (ROWID, value) VALUES (1, '_$!<Mobile>!$_'), "
        "(2, '_$!<Work>!$_'), (3, '_$!<Home>!$_');"
        "INSERT INTO ABMultiValue (UID, record_id, property, label, value) VALUES "
        "(10, 1, 3, 1, '+1 (555) 010-1'), (11, 1, 4, 3, 'ann@example.com'), "
        "(12, 1, 5, 3, NULL), (13, 2, 3, 2, '555-0102');"
        "INSERT INTO ABMultiValueEntryKey (ROWID, value) VALUES (1, 'Street'), (2, 'City');"
        "INSERT INTO ABMultiValueEntry (parent_id, key, value) VALUES (12, 1, '1 Pier Road'), "
        "(12, 2, 'Seaside');");
  }
  {
    TestDatabase db(backup.add("HomeDomain", "Library/AddressBook/AddressBookImages.sqlitedb"));
    createAddressBookImagesSchema(db);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db.handle(), "INSERT INTO ABThumbnailImage VALUES (1, 0, 0, ?)", -1, &insert,
                       nullptr);
    sqlite3_bind_blob(insert, 1, picture.data(), static_cast<int>(picture.size()),
                      SQLITE_TRANSIENT);
    sqlite3_step(insert);
    sqlite3_finalize(insert);
  }
  backup.addFile("MediaDomain", "Library/SMS/Attachments/ab/01/A1/IMG_0001.JPG", picture);
  {
    TestDatabase db(backup.add("HomeDomain", "Library/SMS/sms.db"));
    createMessagesSchema(db);
    // The archived form of "Hello from the archive": class name, "+" marker, length, bytes.
    const std::string archived = std::string("\x04\x0bstreamtyped\x81\xe8\x03\x84\x01@") +
                                 "NSAttributedString" + std::string("\x00\x84\x84\x08", 4) +
                                 "NSString" + std::string("\x01\x94\x84\x01+\x16") +
                                 "Hello from the archive" + "\x86\x84";
    db.exec(
        "INSERT INTO handle (ROWID, id, service) VALUES (1, '+15550101', 'iMessage'), "
        "(2, '+15550102', 'iMessage'), (3, '+15550103', 'SMS'), (4, '+15550104', 'SMS');"
        "INSERT INTO chat (ROWID, guid, style, chat_identifier, display_name) VALUES "
        "(1, 'c1', 45, '+15550101', ''), (2, 'c2', 43, 'chat493028', 'Weekend trip'), "
        "(3, 'c3', 45, '+15550104', NULL);"
        "INSERT INTO chat_handle_join VALUES (1, 1), (2, 1), (2, 2), (2, 3), (3, 4);");
    // Dates: seconds since 2001 on older systems, nanoseconds from iOS 11 on.
    db.exec(
        "INSERT INTO message (ROWID, guid, text, handle_id, subject, service, account, error, "
        "date, is_from_me, destination_caller_id) VALUES "
        "(1, 'm1', 'Are we still on for Saturday?', 1, NULL, 'iMessage', 'p:+15550100', 0, "
        "740049125, 0, NULL),"
        "(2, 'm2', 'Yes! 10am at the pier.', 1, NULL, 'iMessage', 'p:+15550100', 0, "
        "740049220000000000, 1, '+15550100'),"
        "(3, 'm3', char(65532), 1, NULL, 'iMessage', NULL, 0, 740049302000000000, 0, NULL),"
        "(4, 'm4', 'Bring sunscreen.', 1, 'Saturday', 'iMessage', NULL, 0, 740049600000000000, "
        "0, NULL),"
        "(5, 'm5', NULL, 1, NULL, 'iMessage', NULL, 0, 740049700000000000, 0, NULL),"
        "(6, 'm6', 'Sorry, wrong chat', 0, NULL, 'iMessage', NULL, 22, 740049800000000000, 1, "
        "'+15550100'),"
        "(7, 'm7', 'Photos from last time', 2, NULL, 'iMessage', NULL, 0, 739735200000000000, "
        "0, NULL),"
        "(8, 'm8', 'This whole conversation was deleted', 4, NULL, 'SMS', NULL, 0, "
        "727565400000000000, 0, NULL);"
        "INSERT INTO chat_message_join (chat_id, message_id) VALUES (1, 1), (1, 2), (1, 3), "
        "(1, 4), (1, 5), (2, 7);"
        "INSERT INTO chat_recoverable_message_join VALUES (1, 6, 1), (3, 8, 1);"
        "INSERT INTO attachment (ROWID, guid, filename, mime_type, transfer_name) VALUES "
        "(1, 'a1', '~/Library/SMS/Attachments/ab/01/A1/IMG_0001.JPG', 'image/jpeg', "
        "'IMG_0001.JPG');"
        "INSERT INTO message_attachment_join VALUES (3, 1);");
    sqlite3_stmt* update = nullptr;
    sqlite3_prepare_v2(db.handle(), "UPDATE message SET attributedBody = ? WHERE ROWID = 5", -1,
                       &update, nullptr);
    sqlite3_bind_blob(update, 1, archived.data(), static_cast<int>(archived.size()),
                      SQLITE_TRANSIENT);
    sqlite3_step(update);
    sqlite3_finalize(update);
  }
  {
    TestDatabase db(backup.add("HomeDomain", "Library/CallHistoryDB/CallHistory.storedata"));
    createCallHistorySchema(db);
    db.exec(
        "INSERT INTO ZCALLRECORD (Z_PK, ZANSWERED, ZCALLTYPE, ZORIGINATED, ZDATE, ZDURATION, "
        "ZADDRESS, ZLOCATION, ZSERVICE_PROVIDER) VALUES "
        "(1, 0, 1, 1, 740049125, 65.5, '+15550101', 'Seaside', 'com.apple.Telephony'),"
        "(2, 0, 1, 1, 740049200, 0, '+15550199', '<<RecentsNumberLocationNotFound>>', "
        "'com.apple.Telephony'),"
        "(3, 0, 1, 0, 740049300, 0, '5550102', NULL, 'com.apple.Telephony'),"
        "(4, 1, 8, 0, 740049400, 30, 'ann@example.com', NULL, 'com.apple.FaceTime');");
  }
}

}  // namespace dataparser::testing
