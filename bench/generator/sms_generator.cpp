#include "bench/generator/sms_generator.h"

#include <fstream>
#include <string>
#include <vector>

#include <fmt/format.h>

namespace dataparser::bench {
namespace {

constexpr int kAttachmentPool = 997;
constexpr std::string_view kPoolExtensions[] = {"jpg", "png", "mov", "caf", "pdf", "heic"};

std::string poolFile(int index) {
  return fmt::format("files/Attachments/pool/{:03}/IMG_{:04}.{}", index % 100, index,
                     kPoolExtensions[index % std::size(kPoolExtensions)]);
}

void writeAttachmentPool(RecordingWriter& recording, TextSource& source) {
  for (int i = 0; i < kAttachmentPool; ++i) {
    std::ofstream out(recording.file(poolFile(i)), std::ios::binary);
    std::string bytes(static_cast<std::size_t>(source.between(64, 4096)), '\0');
    for (char& byte : bytes)
      byte = static_cast<char>(source.between(0, 255));
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
}

struct Member {
  std::string phone;
  std::string first;
  std::string last;
};

void writeConversation(JsonWriter& w, const RecordingWriter& recording, TextSource& source,
                       std::int64_t id, std::int64_t messageCount, std::int64_t& clock) {
  bool group = source.chance(0.2);
  std::vector<Member> members;
  int memberCount = group ? static_cast<int>(source.between(2, 8)) : 1;
  for (int i = 0; i < memberCount; ++i) {
    members.push_back({source.phoneNumber(), source.chance(0.7) ? source.name() : "",
                       source.chance(0.5) ? source.name() : ""});
  }
  w.StartObject();
  writeInteger(w, "chat_id", id);
  writeInteger(w, "is_deleted", source.chance(0.01) ? 1 : 0);
  writeInteger(w, "is_group", group ? 1 : 0);
  writeString(w, "room_name", group && source.chance(0.5) ? source.text(24) : "");
  writeString(w, "display_name", "");
  writeString(w, "chat_identifier", group ? fmt::format("chat{}", id) : members[0].phone);
  w.Key("members");
  w.StartArray();
  for (std::size_t i = 0; i < members.size(); ++i) {
    w.StartObject();
    writeInteger(w, "handle_id", static_cast<std::int64_t>(id * 10 + i));
    writeString(w, "service", "iMessage");
    writeString(w, "phone_number", members[i].phone);
    writeString(w, "first", members[i].first);
    writeString(w, "middle", "");
    writeString(w, "last", members[i].last);
    w.EndObject();
  }
  w.EndArray();
  w.Key("messages");
  w.StartArray();
  for (std::int64_t m = 0; m < messageCount; ++m) {
    clock += source.between(1, 3600);
    bool fromMe = source.chance(0.5);
    bool media = source.chance(0.1);
    w.StartObject();
    writeString(w, "text", source.text(static_cast<std::size_t>(source.between(0, 500))));
    if (source.chance(0.03)) writeString(w, "subject", source.text(40));
    writeString(w, "send_date", engineDate(clock));
    writeInteger(w, "is_from_me", fromMe ? 1 : 0);
    writeInteger(w, "send_status", source.chance(0.98) ? 0 : 1);
    writeString(w, "service", source.chance(0.7) ? "iMessage" : "SMS");
    writeString(w, "from_id", fromMe ? "+15550000000" : members[0].phone);
    writeString(w, "belong_number", "+15550000000");
    writeInteger(w, "type", media ? 1 : 0);
    if (source.chance(0.02)) writeString(w, "tag", "deleted");
    if (media) {
      w.Key("media_info");
      w.StartArray();
      std::int64_t entries = source.between(1, 3);
      for (std::int64_t e = 0; e < entries; ++e) {
        std::string file = poolFile(static_cast<int>(source.between(0, kAttachmentPool - 1)));
        w.StartObject();
        writeString(w, "media_path",
                    "~/Library/SMS/Attachments/" + file.substr(file.rfind('/') + 1));
        writeString(w, "media_backup_path", recording.absolutePath(file));
        w.EndObject();
      }
      w.EndArray();
    }
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
}

}  // namespace

GeneratedCounts generateSms(RecordingWriter& recording, const SmsOptions& options) {
  TextSource source(options.seed);
  writeAttachmentPool(recording, source);

  GeneratedCounts counts;
  std::vector<std::string> files;
  std::unique_ptr<JsonFile> current;
  std::int64_t inCurrent = 0;
  std::int64_t clock = 1577836800;  // 2020-01-01
  auto closeCurrent = [&] {
    if (!current) return;
    current->writer().EndArray();
    current->writer().EndObject();
    current->close();
    current.reset();
  };
  for (std::int64_t c = 0; c < options.conversations; ++c) {
    std::int64_t count = options.messages / options.conversations +
                         (c < options.messages % options.conversations ? 1 : 0);
    if (!current) {
      std::string relative = fmt::format("files/sms/chats-{:04}.json", files.size() + 1);
      files.push_back(RecordingWriter::rootPath(relative));
      current = std::make_unique<JsonFile>(recording.file(relative));
      current->writer().StartObject();
      current->writer().Key("chat_sessions");
      current->writer().StartArray();
      inCurrent = 0;
    }
    writeConversation(current->writer(), recording, source, c + 1, count, clock);
    counts.records += count;
    inCurrent += count;
    if (inCurrent >= options.messagesPerFile) closeCurrent();
  }
  closeCurrent();
  counts.files = static_cast<std::int64_t>(files.size());

  std::string block = "{\"sms_file_path\": [";
  for (std::size_t i = 0; i < files.size(); ++i) {
    block += (i ? ", \"" : "\"") + files[i] + "\"";
  }
  block += "]}";
  recording.block(56, block);
  return counts;
}

}  // namespace dataparser::bench
