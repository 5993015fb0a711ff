// The messages database, HomeDomain "Library/SMS/sms.db", as public descriptions of it give it:
//   chat(ROWID, chat_identifier, style 43 group / 45 one-to-one, display_name the group's
//        name, service_name)
//   handle(ROWID, id the number or address, service)
//   chat_handle_join(chat_id, handle_id)
//   message(ROWID, text, attributedBody (the text of newer systems when text is NULL), subject,
//           service, date (seconds since 2001, nanoseconds from iOS 11), is_from_me, error,
//           handle_id, destination_caller_id, account "p:+1555..." or "e:a@b")
//   chat_message_join(chat_id, message_id)
//   chat_recoverable_message_join(chat_id, message_id): iOS 16+ Recently Deleted
//   attachment(ROWID, filename "~/Library/SMS/Attachments/..", mime_type, transfer_name)
//   message_attachment_join(message_id, attachment_id)
// Columns a version lacks read as NULL.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "dataparser/engine/ios_backup/backup_reader.h"
#include "dataparser/engine/ios_backup/json_block_writer.h"
#include "dataparser/engine/ios_backup/messages_query.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

constexpr std::int64_t kGroupChatStyle = 43;
constexpr std::size_t kMessagesPerFile = 100000;
constexpr std::string_view kObjectReplacement = "\xEF\xBF\xBC";  // where an attachment sat

struct Attachment {
  std::string devicePath;
  std::string backupPath;
};

struct Chat {
  std::string identifier;
  std::string groupName;
  bool group = false;
  struct Member {
    std::int64_t handle;
    std::string id;
    std::string service;
  };
  std::vector<Member> members;
};

// One message row, kept only for Recently Deleted messages (written after a chat's own).
struct StoredMessage {
  std::int64_t id = 0;
  std::string text;
  std::string attributedBody;
  std::string subject;
  std::string service;
  double date = 0;
  std::int64_t isFromMe = 0;
  std::int64_t error = 0;
  std::string handle;
  std::string callerID;
  std::string account;
};

// The device path of an attachment as the backup names it: "~/Library/..." or
// "/var/mobile/Library/..." become MediaDomain "Library/...".
std::string_view mediaRelativePath(std::string_view devicePath) {
  for (std::string_view prefix : {"~/", "/var/mobile/", "/private/var/mobile/"}) {
    if (devicePath.starts_with(prefix)) return devicePath.substr(prefix.size());
  }
  return {};
}

std::unordered_map<std::int64_t, Chat> loadChats(SqliteDatabase& db) {
  std::unordered_map<std::int64_t, Chat> chats;
  SqliteStatement rows = db.prepare("SELECT c.ROWID, " + db.column("chat", "c", "chat_identifier") +
                                    ", " + db.column("chat", "c", "style") + ", " +
                                    db.column("chat", "c", "display_name") + " FROM chat c");
  while (rows.step()) {
    Chat& chat = chats[rows.integer(0)];
    chat.identifier = rows.text(1);
    chat.group = rows.integer(2) == kGroupChatStyle;
    chat.groupName = rows.text(3);
  }
  if (!db.hasTable("chat_handle_join") || !db.hasTable("handle")) return chats;
  SqliteStatement members =
      db.prepare("SELECT j.chat_id, h.ROWID, " + db.column("handle", "h", "id") + ", " +
                 db.column("handle", "h", "service") +
                 " FROM chat_handle_join j JOIN handle h ON h.ROWID = j.handle_id ORDER BY "
                 "j.chat_id, h.ROWID");
  while (members.step()) {
    auto chat = chats.find(members.integer(0));
    if (chat == chats.end()) continue;
    chat->second.members.push_back(
        {members.integer(1), std::string(members.text(2)), std::string(members.text(3))});
  }
  return chats;
}

std::unordered_map<std::int64_t, std::vector<Attachment>> loadAttachments(SqliteDatabase& db,
                                                                          BackupManifest& backup) {
  std::unordered_map<std::int64_t, std::vector<Attachment>> attachments;
  if (!db.hasTable("attachment") || !db.hasTable("message_attachment_join")) return attachments;
  SqliteStatement rows =
      db.prepare("SELECT j.message_id, " + db.column("attachment", "a", "filename") +
                 " FROM message_attachment_join j JOIN attachment a ON "
                 "a.ROWID = j.attachment_id ORDER BY j.message_id, a.ROWID");
  while (rows.step()) {
    std::string devicePath(rows.text(1));
    if (devicePath.empty()) continue;
    std::string backupPath = backup.filePath(kMediaDomain, mediaRelativePath(devicePath));
    attachments[rows.integer(0)].push_back({std::move(devicePath), std::move(backupPath)});
  }
  return attachments;
}

// The message text of newer systems, kept in "attributedBody" (an archived attributed string):
// after the class name "NSString" comes a "+" marker, a length (one byte, or 0x81 and two bytes
// little-endian, or 0x82 and four) and the UTF-8 text.
std::string_view archivedText(std::string_view body) {
  const std::size_t at = body.find("NSString");
  if (at == std::string_view::npos) return {};
  const std::size_t marker = body.find('+', at + 8);
  if (marker == std::string_view::npos || marker > at + 16) return {};
  std::size_t cursor = marker + 1;
  auto byte = [&](std::size_t i) { return static_cast<unsigned char>(body[i]); };
  if (cursor >= body.size()) return {};
  std::size_t length = byte(cursor);
  ++cursor;
  if (length == 0x81 || length == 0x82) {
    const std::size_t width = length == 0x81 ? 2 : 4;
    if (cursor + width > body.size()) return {};
    length = 0;
    for (std::size_t i = 0; i < width; ++i)
      length |= static_cast<std::size_t>(byte(cursor + i)) << (8 * i);
    cursor += width;
  } else if (length >= 0x80) {
    return {};
  }
  if (cursor + length > body.size()) return {};
  return body.substr(cursor, length);
}

std::string cleanText(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  for (std::size_t from = 0;;) {
    const std::size_t at = text.find(kObjectReplacement, from);
    clean.append(
        text.substr(from, at == std::string_view::npos ? std::string_view::npos : at - from));
    if (at == std::string_view::npos) break;
    from = at + kObjectReplacement.size();
  }
  return clean;
}

// The phone's own number or address of a message: destination_caller_id, else the account
// without its "p:" / "e:" kind.
std::string_view ownNumber(std::string_view callerID, std::string_view account) {
  if (!callerID.empty()) return callerID;
  if (account.size() > 2 && account[1] == ':') return account.substr(2);
  return account;
}

class MessageFiles {
 public:
  MessageFiles(BackupScanContext& context, std::unordered_map<std::int64_t, Chat> chats,
               std::unordered_map<std::int64_t, std::vector<Attachment>> attachments)
      : context_(context), chats_(std::move(chats)), attachments_(std::move(attachments)) {}

  void openChat(std::int64_t chatID, bool deleted) {
    if (!writer_ || messagesInFile_ >= kMessagesPerFile) nextFile();
    if (!writer_) return;
    JsonBlockWriter& w = *writer_;
    w.startObject();
    w.field("chat_id", chatID);
    w.field("is_deleted", std::int64_t{deleted ? 1 : 0});
    auto found = chats_.find(chatID);
    static const Chat kNoChat;
    const Chat& chat = found != chats_.end() ? found->second : kNoChat;
    w.field("is_group", std::int64_t{chat.group ? 1 : 0});
    w.field("room_name", chat.groupName);
    w.field("display_name", "");
    w.field("chat_identifier", chat.identifier);
    w.key("members");
    w.startArray();
    for (const Chat::Member& member : chat.members) {
      w.startObject();
      w.field("handle_id", member.handle);
      w.field("service", member.service);
      w.field("phone_number", member.id);
      if (const PersonName* name = context_.names().find(member.id)) {
        w.field("first", name->first);
        w.field("middle", name->middle);
        w.field("last", name->last);
      }
      w.endObject();
    }
    w.endArray();
    w.key("messages");
    w.startArray();
  }

  void closeChat() {
    if (!writer_) return;
    writer_->endArray();
    writer_->endObject();
  }

  void message(std::int64_t id, std::string_view text, std::string_view attributedBody,
               std::string_view subject, std::string_view service, double date,
               std::int64_t isFromMe, std::int64_t error, std::string_view handle,
               std::string_view callerID, std::string_view account, bool deleted) {
    if (!writer_) return;
    ++messagesInFile_;
    ++messages_;
    JsonBlockWriter& w = *writer_;
    w.startObject();
    if (text.empty()) text = archivedText(attributedBody);
    if (text.find(kObjectReplacement) != std::string_view::npos) {
      w.field("text", cleanText(text));
    } else {
      w.field("text", text);
    }
    if (!subject.empty()) w.field("subject", subject);
    w.field("send_date", backupDateText(date));
    w.field("is_from_me", isFromMe != 0 ? std::int64_t{1} : std::int64_t{0});
    w.field("send_status", isFromMe != 0 && error != 0 ? std::int64_t{1} : std::int64_t{0});
    w.field("service", service);
    const std::string_view own = ownNumber(callerID, account);
    w.field("from_id", isFromMe != 0 ? own : handle);
    w.field("belong_number", own);
    auto found = attachments_.find(id);
    if (found == attachments_.end() || found->second.empty()) {
      w.field("type", std::int64_t{0});
    } else if (found->second.size() == 1) {
      w.field("type", std::int64_t{1});
      w.field("media_path", found->second.front().devicePath);
      w.field("media_backup_path", found->second.front().backupPath);
    } else {
      w.field("type", std::int64_t{1});
      w.key("media_info");
      w.startArray();
      for (const Attachment& attachment : found->second) {
        w.startObject();
        w.field("media_path", attachment.devicePath);
        w.field("media_backup_path", attachment.backupPath);
        w.endObject();
      }
      w.endArray();
    }
    if (deleted) w.field("tag", "deleted");
    w.endObject();
  }

  void message(const StoredMessage& m, bool deleted) {
    message(m.id, m.text, m.attributedBody, m.subject, m.service, m.date, m.isFromMe, m.error,
            m.handle, m.callerID, m.account, deleted);
  }

  // Ends the last file; the block naming every file.
  std::optional<std::string> finish() {
    endFile();
    if (failed_) return std::nullopt;
    JsonBlockWriter block;
    block.startObject();
    block.key("sms_file_path");
    block.startArray();
    for (const std::string& path : files_)
      block.string(path);
    block.endArray();
    block.endObject();
    return block.text();
  }

  std::size_t messages() const { return messages_; }

 private:
  void nextFile() {
    endFile();
    const std::string folder = context_.outputFolder() + "/sms";
    std::error_code ignored;
    std::filesystem::create_directories(folder, ignored);
    std::string path = folder + "/chats-" + std::to_string(files_.size() + 1) + ".json";
    writer_ = std::make_unique<JsonBlockWriter>(path);
    if (!writer_->ok()) {
      RunLog::write("*** iOS backup: cannot write {}", path);
      writer_.reset();
      failed_ = true;
      return;
    }
    files_.push_back(std::move(path));
    writer_->startObject();
    writer_->key("chat_sessions");
    writer_->startArray();
    messagesInFile_ = 0;
  }

  void endFile() {
    if (!writer_) return;
    writer_->endArray();
    writer_->endObject();
    if (!writer_->close()) failed_ = true;
    writer_.reset();
  }

  BackupScanContext& context_;
  std::unordered_map<std::int64_t, Chat> chats_;
  std::unordered_map<std::int64_t, std::vector<Attachment>> attachments_;
  std::unique_ptr<JsonBlockWriter> writer_;
  std::vector<std::string> files_;
  std::size_t messagesInFile_ = 0;
  std::size_t messages_ = 0;
  bool failed_ = false;
};

// Recently Deleted messages by chat, in message order.
std::unordered_map<std::int64_t, std::vector<StoredMessage>> loadRecoverable(SqliteDatabase& db) {
  std::unordered_map<std::int64_t, std::vector<StoredMessage>> recoverable;
  if (!db.hasTable("chat_recoverable_message_join")) return recoverable;
  SqliteStatement rows = db.prepare(messageQuery(db, "chat_recoverable_message_join"));
  while (rows.step()) {
    StoredMessage m;
    m.id = rows.integer(kMessageID);
    m.text = rows.text(kMessageText);
    m.attributedBody = rows.text(kMessageAttributedBody);
    m.subject = rows.text(kMessageSubject);
    m.service = rows.text(kMessageService);
    m.date = rows.real(kMessageDate);
    m.isFromMe = rows.integer(kMessageIsFromMe);
    m.error = rows.integer(kMessageError);
    m.handle = rows.text(kMessageHandle);
    m.callerID = rows.text(kMessageCallerID);
    m.account = rows.text(kMessageAccount);
    recoverable[rows.integer(kMessageChat)].push_back(std::move(m));
  }
  return recoverable;
}

}  // namespace

std::string messageQuery(SqliteDatabase& db, std::string_view joinTable) {
  const std::string join(joinTable);
  auto m = [&db](std::string_view name) { return db.column("message", "m", name); };
  return "SELECT j.chat_id, m.ROWID, " + m("text") + ", " + m("attributedBody") + ", " +
         m("subject") + ", " + m("service") + ", " + m("date") + ", " + m("is_from_me") + ", " +
         m("error") + ", " + db.column("handle", "h", "id") + ", " + m("destination_caller_id") +
         ", " + m("account") + " FROM " + join + " j JOIN message m ON m.ROWID = j.message_id" +
         (db.hasTable("handle") ? " LEFT JOIN handle h ON h.ROWID = m.handle_id" : "") +
         " ORDER BY j.chat_id, j.message_id";
}

std::optional<std::string> readMessages(SqliteDatabase& db, BackupScanContext& context) {
  if (!db.hasTable("message") || !db.hasTable("chat_message_join")) {
    RunLog::write("*** iOS backup: sms.db has no message table");
    return std::nullopt;
  }
  auto recoverable = loadRecoverable(db);
  MessageFiles files(context, loadChats(db), loadAttachments(db, context.backup()));
  std::string error;
  SqliteStatement rows = db.prepare(messageQuery(db, "chat_message_join"), &error);
  if (!rows.valid()) {
    RunLog::write("*** iOS backup: sms.db query failed: {}", error);
    return std::nullopt;
  }
  std::int64_t chat = 0;
  bool open = false;
  auto closeChat = [&] {
    if (!open) return;
    if (auto deleted = recoverable.find(chat); deleted != recoverable.end()) {
      for (const StoredMessage& m : deleted->second)
        files.message(m, /*deleted=*/true);
      recoverable.erase(deleted);
    }
    files.closeChat();
    open = false;
  };
  for (std::size_t row = 0; rows.step(); ++row) {
    if ((row & 0xFFF) == 0 && context.stopRequested()) return std::nullopt;
    const std::int64_t rowChat = rows.integer(kMessageChat);
    if (!open || rowChat != chat) {
      closeChat();
      chat = rowChat;
      files.openChat(chat, /*deleted=*/false);
      open = true;
    }
    files.message(
        rows.integer(kMessageID), rows.text(kMessageText), rows.text(kMessageAttributedBody),
        rows.text(kMessageSubject), rows.text(kMessageService), rows.real(kMessageDate),
        rows.integer(kMessageIsFromMe), rows.integer(kMessageError), rows.text(kMessageHandle),
        rows.text(kMessageCallerID), rows.text(kMessageAccount), /*deleted=*/false);
  }
  closeChat();
  if (rows.failed()) RunLog::write("*** iOS backup: sms.db read stopped early");
  // Chats that live only in Recently Deleted were deleted whole.
  std::vector<std::int64_t> deletedChats;
  for (const auto& entry : recoverable)
    deletedChats.push_back(entry.first);
  std::sort(deletedChats.begin(), deletedChats.end());
  for (std::int64_t id : deletedChats) {
    files.openChat(id, /*deleted=*/true);
    for (const StoredMessage& m : recoverable[id])
      files.message(m, /*deleted=*/true);
    files.closeChat();
  }
  RunLog::write("*** iOS backup: {} messages", files.messages());
  return files.finish();
}

}  // namespace dataparser
