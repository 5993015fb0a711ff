// The call history, HomeDomain "Library/CallHistoryDB/CallHistory.storedata" (a Core Data
// store), as public descriptions of it give it:
//   ZCALLRECORD(Z_PK, ZADDRESS the other party's number (text or bytes), ZANSWERED,
//               ZORIGINATED 1 outgoing, ZDATE seconds since 2001, ZDURATION seconds,
//               ZCALLTYPE 1 phone / 8 FaceTime video / 16 FaceTime audio, ZLOCATION,
//               ZSERVICE_PROVIDER "com.apple.Telephony" / "com.apple.FaceTime", ZNAME,
//               ZLOCALADDRESS the phone's own line on two-line phones)
// An outgoing call's ZANSWERED stays 0 even when the call connected: its outcome is judged by its
// duration.
#include <optional>
#include <string>

#include "dataparser/engine/ios_backup/backup_reader.h"
#include "dataparser/engine/ios_backup/json_block_writer.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

// Outcome codes of a call record.
constexpr std::int64_t kConnected = 0;
constexpr std::int64_t kCanceled = 1;  // outgoing, never connected
constexpr std::int64_t kMissed = 2;    // incoming, never answered

}  // namespace

std::optional<std::string> readCallHistory(SqliteDatabase& db, BackupScanContext& context) {
  if (!db.hasTable("ZCALLRECORD")) {
    RunLog::write("*** iOS backup: CallHistory.storedata has no ZCALLRECORD table");
    return std::nullopt;
  }
  auto c = [&db](std::string_view name) { return db.column("ZCALLRECORD", "r", name); };
  SqliteStatement rows =
      db.prepare("SELECT " + c("ZADDRESS") + ", " + c("ZANSWERED") + ", " + c("ZORIGINATED") +
                 ", " + c("ZDATE") + ", " + c("ZDURATION") + ", " + c("ZCALLTYPE") + ", " +
                 c("ZLOCATION") + ", " + c("ZSERVICE_PROVIDER") + ", " + c("ZNAME") + ", " +
                 c("ZLOCALADDRESS") + " FROM ZCALLRECORD r ORDER BY " + c("ZDATE") + ", r.ROWID");
  if (!rows.valid()) return std::nullopt;
  JsonBlockWriter w;
  w.startObject();
  w.key("call_records");
  w.startArray();
  std::size_t count = 0;
  while (rows.step()) {
    if (context.stopRequested()) return std::nullopt;
    const std::string_view address = rows.text(0);
    const std::int64_t answered = rows.integer(1);
    const bool outgoing = rows.integer(2) == 1;
    const double duration = rows.real(4);
    std::int64_t outcome = kConnected;
    if (outgoing && duration <= 0) outcome = kCanceled;
    if (!outgoing && answered == 0 && duration <= 0) outcome = kMissed;
    w.startObject();
    w.field("address", address);
    w.field("flags", std::int64_t{outgoing ? 1 : 0});
    w.field("answered", answered);
    w.field("connect_type", outcome);
    w.key("duration");
    w.real(duration);
    w.field("datetime", backupDateText(rows.real(3)));
    if (!rows.isNull(5)) w.field("call_type", rows.integer(5));
    if (!rows.isNull(6)) w.field("location", rows.text(6));
    if (!rows.isNull(7)) w.field("service_provider", rows.text(7));
    w.field("belong", rows.text(9));
    if (const PersonName* name = context.names().find(address)) {
      w.field("first", name->first);
      w.field("middle", name->middle);
      w.field("last", name->last);
    } else if (!rows.text(8).empty()) {
      w.field("first", rows.text(8));
    }
    w.endObject();
    ++count;
  }
  w.endArray();
  w.endObject();
  RunLog::write("*** iOS backup: {} calls", count);
  return w.text();
}

}  // namespace dataparser
