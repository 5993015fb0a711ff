// Writers of synthetic device backups with the real table and column names, for the backup
// engine's tests and benchmark: a BackupBuilder lays out Manifest.plist, Manifest.db and files
// stored under their hashed names, and the database writers fill sms.db, the address book, its
// pictures and the call history.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct sqlite3;

namespace dataparser::testing {

// An open SQLite database written by a test; closed (no journal left) with the object.
class TestDatabase {
 public:
  explicit TestDatabase(const std::string& path);
  ~TestDatabase();
  TestDatabase(const TestDatabase&) = delete;
  TestDatabase& operator=(const TestDatabase&) = delete;
  // Runs one or more statements; aborts the test process on an error (a broken fixture).
  void exec(std::string_view sql);
  sqlite3* handle() const { return db_; }

 private:
  sqlite3* db_ = nullptr;
};

class BackupBuilder {
 public:
  explicit BackupBuilder(std::string folder, bool encrypted = false);
  ~BackupBuilder();
  BackupBuilder(const BackupBuilder&) = delete;
  BackupBuilder& operator=(const BackupBuilder&) = delete;

  // Lists a file in Manifest.db and returns where its bytes go ("<2 hex>/<sha1>").
  std::string add(std::string_view domain, std::string_view relativePath);
  // Lists and writes a file.
  std::string addFile(std::string_view domain, std::string_view relativePath,
                      std::string_view bytes);
  const std::string& folder() const { return folder_; }

 private:
  std::string folder_;
  TestDatabase* manifest_ = nullptr;
};

// The schemas of the phone's databases (the columns this engine reads and some neighbours).
void createMessagesSchema(TestDatabase& db);
void createAddressBookSchema(TestDatabase& db);
void createAddressBookImagesSchema(TestDatabase& db);
void createCallHistorySchema(TestDatabase& db);

// Adds `messages` messages spread over `conversations` one-to-one chats, in one transaction;
// deterministic for a seed.
void fillMessages(TestDatabase& db, std::int64_t messages, std::int64_t conversations,
                  std::uint32_t seed);

// The small backup of the engine tests, in `folder`:
//  - address book: Ann Lee (mobile "+1 (555) 010-1", e-mail, home address, a picture) and Bob
//    (work "555-0102");
//  - sms.db: chat 1 with Ann (received text, sent text with a nanosecond date, a picture, a
//    subject, an archived-only text, a Recently Deleted message); group chat 2 "Weekend trip"
//    with Ann, Bob and +15550103; chat 3 only in Recently Deleted;
//  - call history: an outgoing connected call (answered 0), an outgoing unanswered call, a
//    missed incoming call from Bob and a FaceTime call.
// `picture` holds the bytes of the one attachment and of Ann's thumbnail.
void writeSampleBackup(const std::string& folder, std::string_view picture);

}  // namespace dataparser::testing
