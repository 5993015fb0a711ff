// backup_floor: the floor of a device backup scan's cost. Opens the backup's sms.db read-only
// and immutable and steps once through the engine's own joined message query, touching every
// column, and prints "floor: rows=N bytes=B seconds=S".
#include <chrono>
#include <cstdio>
#include <string>

#include "dataparser/engine/ios_backup/backup_manifest.h"
#include "dataparser/engine/ios_backup/messages_query.h"
#include "dataparser/engine/ios_backup/sqlite_database.h"

int main(int argc, char** argv) {
  using namespace dataparser;
  if (argc != 2) {
    std::fprintf(stderr, "usage: backup_floor BACKUP\n");
    return 2;
  }
  const std::string id = backupFileID("HomeDomain", "Library/SMS/sms.db");
  const std::string path = std::string(argv[1]) + "/" + id.substr(0, 2) + "/" + id;
  auto start = std::chrono::steady_clock::now();
  std::string error;
  std::unique_ptr<SqliteDatabase> db = SqliteDatabase::openReadOnly(path, &error);
  if (!db) {
    std::fprintf(stderr, "backup_floor: %s: %s\n", path.c_str(), error.c_str());
    return 1;
  }
  SqliteStatement rows = db->prepare(messageQuery(*db, "chat_message_join"));
  std::uint64_t count = 0;
  std::uint64_t bytes = 0;
  while (rows.step()) {
    ++count;
    // The columns as the messages reader reads them.
    bytes +=
        static_cast<std::uint64_t>(rows.integer(kMessageChat) + rows.integer(kMessageID) +
                                   rows.integer(kMessageIsFromMe) + rows.integer(kMessageError)) &
        1;
    bytes += rows.real(kMessageDate) > 0 ? 1 : 0;
    for (int column : {kMessageText, kMessageAttributedBody, kMessageSubject, kMessageService,
                       kMessageHandle, kMessageCallerID, kMessageAccount})
      bytes += rows.text(column).size();
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("floor: rows=%llu bytes=%llu seconds=%.3f\n", static_cast<unsigned long long>(count),
              static_cast<unsigned long long>(bytes), seconds);
  return rows.failed() ? 1 : 0;
}
