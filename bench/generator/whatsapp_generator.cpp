#include "bench/generator/whatsapp_generator.h"

#include <fmt/format.h>

#include <fstream>
#include <string>
#include <vector>

namespace dataparser::bench {
namespace {

constexpr int kMediaPool = 499;
constexpr std::string_view kExtensions[] = {"jpg", "opus", "mp4", "pdf"};
constexpr int kKinds[] = {1, 2, 3, 4};  // photo, voice, video, document

std::string poolFile(int index) {
  return fmt::format("files/Media/{:02}/WA_{:04}.{}", index % 50, index,
                     kExtensions[index % std::size(kExtensions)]);
}

void writeMediaPool(RecordingWriter& recording, TextSource& source) {
  for (int i = 0; i < kMediaPool; ++i) {
    std::ofstream out(recording.file(poolFile(i)), std::ios::binary);
    std::string bytes(static_cast<std::size_t>(source.between(64, 4096)), '\0');
    for (char& byte : bytes)
      byte = static_cast<char>(source.between(0, 255));
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
}

std::string jid(const std::string& phone) {
  return phone.substr(phone.starts_with('+') ? 1 : 0) + "@s.whatsapp.net";
}

void writeMessages(const RecordingWriter& recording, const std::filesystem::path& file,
                   TextSource& source, bool group, const std::vector<std::string>& members,
                   std::int64_t count, double& clock) {
  JsonFile out(file);
  JsonWriter& w = out.writer();
  w.StartObject();
  w.Key("messages");
  w.StartArray();
  for (std::int64_t m = 0; m < count; ++m) {
    clock += static_cast<double>(source.between(1, 3600));
    const bool fromMe = source.chance(0.5);
    const std::string& sender = members[static_cast<std::size_t>(
        source.between(0, static_cast<std::int64_t>(members.size()) - 1))];
    w.StartObject();
    int kind = 0;
    if (group && m == 0) {
      kind = 25;
    } else if (source.chance(0.005)) {
      kind = 23;
    } else if (source.chance(0.1)) {
      kind = kKinds[source.between(0, 3)];
    }
    writeInteger(w, "type", kind);
    writeInteger(w, "ZISFROMME", fromMe ? 1 : 0);
    writeInteger(w, "ZMESSAGESTATUS", source.chance(0.98) ? 6 : 9);
    w.Key("ZMESSAGEDATE");
    w.Double(clock);
    writeString(w, "text",
                kind == 0 ? source.text(static_cast<std::size_t>(source.between(0, 500))) : "");
    writeString(w, "from_id", fromMe ? "4917000000000@s.whatsapp.net" : jid(sender));
    writeString(w, "to_id", fromMe ? jid(sender) : "4917000000000@s.whatsapp.net");
    if (group && !fromMe) writeString(w, "name_id", jid(sender));
    if (source.chance(0.02)) writeString(w, "tag", "deleted");
    if (kind >= 1 && kind <= 4) {
      std::string media = poolFile(static_cast<int>(source.between(0, kMediaPool - 1)));
      writeInteger(w, "media_type", kind);
      writeString(w, "media_backup", recording.absolutePath(media));
      writeString(w, "media_path", "Media/" + media.substr(media.rfind('/') + 1));
      if (kind == 2) {
        w.Key("duration");
        w.Double(static_cast<double>(source.between(1, 120)));
      }
    }
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
}

}  // namespace

GeneratedCounts generateWhatsapp(RecordingWriter& recording, const WhatsappOptions& options) {
  TextSource source(options.seed);
  writeMediaPool(recording, source);

  GeneratedCounts counts;
  double clock = 600000000;  // 2020-01-06 in seconds since 2001
  JsonFile sessions(recording.file("stream-block.tmp"));
  JsonWriter& w = sessions.writer();
  w.StartObject();
  w.Key("whatsapp_chatsessions");
  w.StartArray();
  for (std::int64_t c = 0; c < options.conversations; ++c) {
    const std::int64_t count = options.messages / options.conversations +
                               (c < options.messages % options.conversations ? 1 : 0);
    const bool group = source.chance(0.2);
    std::vector<std::string> members;
    const int memberCount = group ? static_cast<int>(source.between(2, 8)) : 1;
    for (int i = 0; i < memberCount; ++i)
      members.push_back(source.phoneNumber());
    const std::string relative = fmt::format("files/chats/{:03}/chat-{:06}.json", c % 100, c);
    writeMessages(recording, recording.file(relative), source, group, members, count, clock);
    counts.records += count;
    ++counts.files;

    w.StartObject();
    writeInteger(w, "session_type", group ? 1 : 0);
    writeString(
        w, "jid",
        group ? fmt::format("{}-{}@g.us", members[0].substr(1), 1600000000 + c) : jid(members[0]));
    writeString(w, "name", group ? source.text(24) : source.name());
    w.Key("profile_backup_path");
    w.Null();
    if (group) {
      w.Key("members");
      w.StartArray();
      for (const std::string& member : members) {
        w.StartObject();
        writeString(w, "member_name", source.name());
        writeString(w, "member_jid", jid(member));
        w.EndObject();
      }
      w.EndArray();
    }
    w.Key("msg_file_list");
    w.StartArray();
    const std::string named = RecordingWriter::rootPath(relative);
    w.String(named.data(), static_cast<rapidjson::SizeType>(named.size()));
    w.EndArray();
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
  sessions.close();

  // The list goes into the stream as the engine's single WhatsApp callback.
  const std::filesystem::path block = recording.file("stream-block.tmp");
  std::ifstream in(block, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  in.close();
  std::filesystem::remove(block);
  recording.block(61, text);
  return counts;
}

}  // namespace dataparser::bench
