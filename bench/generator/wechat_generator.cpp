#include "bench/generator/wechat_generator.h"

#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include <fmt/format.h>

namespace dataparser::bench {
namespace {

constexpr int kMediaPool = 499;
constexpr std::string_view kMediaExtensions[] = {"jpg", "mp4", "aud", "jpg", "png"};

std::string mediaFile(int index) {
  return fmt::format("files/wechat/pool/{:02}/{:04}.{}", index % 50, index,
                     kMediaExtensions[index % std::size(kMediaExtensions)]);
}

void writeMediaPool(RecordingWriter& recording, TextSource& source) {
  for (int i = 0; i < kMediaPool; ++i) {
    std::ofstream out(recording.file(mediaFile(i)), std::ios::binary);
    std::string bytes(static_cast<std::size_t>(source.between(64, 4096)), '\0');
    for (char& byte : bytes)
      byte = static_cast<char>(source.between(0, 255));
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
}

// The kinds of message, with their share of a thousand.
struct Kind {
  int contentType;
  int perMille;
};
constexpr Kind kKinds[] = {{0, 760}, {1, 80},  {2, 50},  {3, 15},     {12, 15}, {11, 15},
                           {7, 10},  {30, 15}, {17, 10}, {10000, 10}, {49, 10}};

int pickKind(TextSource& source) {
  std::int64_t roll = source.between(0, 999);
  for (const Kind& kind : kKinds) {
    if (roll < kind.perMille) return kind.contentType;
    roll -= kind.perMille;
  }
  return 0;
}

void writeMedia(JsonWriter& w, const RecordingWriter& recording, TextSource& source, bool thumb) {
  std::string file = mediaFile(static_cast<int>(source.between(0, kMediaPool - 1)));
  writeString(w, "media_backup", recording.absolutePath(file));
  writeString(w, "media_path", "Documents/abc/" + file.substr(file.rfind('/') + 1));
  if (thumb) {
    std::string small = mediaFile(static_cast<int>(source.between(0, kMediaPool - 1)));
    writeString(w, "thumb_backup", recording.absolutePath(small));
    writeString(w, "thumb_path", "Documents/abc/" + small.substr(small.rfind('/') + 1));
  }
}

void writeMessage(JsonWriter& w, const RecordingWriter& recording, TextSource& source,
                  const std::string& peer, std::int64_t clock) {
  const int kind = pickKind(source);
  const bool received = source.chance(0.5);
  w.StartObject();
  writeInteger(w, "content_type", kind);
  writeString(w, "data_time", engineDate(clock));
  writeInteger(w, "is_from_other", received ? 1 : 0);
  writeInteger(w, "send_state", source.chance(0.98) ? 0 : 1);
  writeString(w, "from_id", received ? peer : "wxid_me");
  if (source.chance(0.02)) writeString(w, "tag", "deleted");
  switch (kind) {
    case 0:
    case 10000:
      writeString(w, "text", source.text(static_cast<std::size_t>(source.between(0, 300))));
      break;
    case 1:
      writeInteger(w, "media_type", 1);
      writeMedia(w, recording, source, true);
      break;
    case 2:
      writeString(w, "duration", std::to_string(source.between(1, 60)));
      writeMedia(w, recording, source, false);
      break;
    case 3:
      writeString(w, "duration", std::to_string(source.between(1, 300)));
      writeMedia(w, recording, source, true);
      break;
    case 12:
      writeString(w, "text", source.text(30));
      writeString(w, "money",
                  fmt::format("{}.{:02}", source.between(1, 500), source.between(0, 99)));
      writeInteger(w, "wcpay_status", source.between(0, 3));
      break;
    case 11:
      writeString(w, "title", source.text(30));
      writeInteger(w, "wcpay_status", source.between(0, 3));
      break;
    case 7:
      writeString(w, "poiname", source.text(20));
      writeString(w, "location_info", source.text(40));
      break;
    case 30:
      writeString(w, "title", source.text(40));
      writeString(w, "summary", source.text(80));
      writeString(w, "text", fmt::format("https://example.org/a/{}", source.between(1, 99999)));
      break;
    case 17:
      writeString(w, "url", "");
      break;
    default:
      writeString(w, "title", source.text(20) + ".pdf");
      writeInteger(w, "media_type", 4);
      break;
  }
  w.EndObject();
}

}  // namespace

GeneratedCounts generateWeChat(RecordingWriter& recording, const WeChatOptions& options) {
  TextSource source(options.seed);
  writeMediaPool(recording, source);

  GeneratedCounts counts;
  std::int64_t clock = 1577836800;  // 2020-01-01
  std::int64_t conversation = 0;
  for (std::int64_t a = 0; a < options.accounts; ++a) {
    const std::int64_t last = options.conversations * (a + 1) / options.accounts;
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> block(buffer);
    block.StartObject();
    block.Key("wechat_users");
    block.StartArray();
    block.StartObject();
    block.Key("wx_id");
    block.String(fmt::format("wxid_account{}", a).c_str());
    block.Key("wx_name");
    block.String(source.name().c_str());
    block.Key("phone");
    block.String(source.phoneNumber().c_str());
    std::vector<std::string> subscriptions;
    block.Key("ChatSessions");
    block.StartArray();
    for (; conversation < last; ++conversation) {
      const std::int64_t count = options.messages / options.conversations +
                                 (conversation < options.messages % options.conversations ? 1 : 0);
      const bool group = source.chance(0.2);
      const bool subscription = !group && source.chance(0.1);
      const std::string peer = fmt::format("wxid_peer{}", conversation);
      std::vector<std::string> files;
      for (std::int64_t done = 0; done < count;) {
        const std::int64_t inFile = std::min(options.messagesPerFile, count - done);
        std::string relative =
            fmt::format("files/wechat/msg/{:06}-{}.json", conversation, files.size());
        JsonFile file(recording.file(relative));
        JsonWriter& w = file.writer();
        w.StartObject();
        w.Key("content");
        w.StartArray();
        for (std::int64_t m = 0; m < inFile; ++m) {
          clock += source.between(1, 600);
          writeMessage(w, recording, source, peer, clock);
        }
        w.EndArray();
        w.EndObject();
        files.push_back(recording.absolutePath(relative));
        done += inFile;
        ++counts.files;
      }
      counts.records += count;
      // A subscription goes to its own list, written after the chats.
      rapidjson::StringBuffer sessionText;
      rapidjson::Writer<rapidjson::StringBuffer> s(sessionText);
      s.StartObject();
      s.Key("id");
      s.String(group ? fmt::format("{}@chatroom", conversation).c_str() : peer.c_str());
      s.Key("name");
      s.String(source.text(20).c_str());
      s.Key("is_group");
      s.Int(group ? 1 : 0);
      s.Key("head_backup");
      // Conversation pictures are often missing from a backup.
      s.String(
          recording.absolutePath(fmt::format("files/wechat/heads/{}.jpg", conversation)).c_str());
      if (group) {
        s.Key("members");
        s.StartArray();
        for (std::int64_t i = source.between(3, 30); i > 0; --i) {
          s.StartObject();
          s.Key("id");
          s.String(fmt::format("wxid_member{}", i).c_str());
          s.Key("name");
          s.String(source.name().c_str());
          s.EndObject();
        }
        s.EndArray();
      }
      s.Key("msg_file_list");
      s.StartArray();
      for (const std::string& path : files)
        s.String(path.c_str());
      s.EndArray();
      s.EndObject();
      if (subscription) {
        subscriptions.emplace_back(sessionText.GetString(), sessionText.GetSize());
      } else {
        block.RawValue(sessionText.GetString(), sessionText.GetSize(), rapidjson::kObjectType);
      }
    }
    block.EndArray();
    block.Key("SubscribeSessions");
    block.StartArray();
    for (const std::string& text : subscriptions)
      block.RawValue(text.c_str(), text.size(), rapidjson::kObjectType);
    block.EndArray();
    block.EndObject();
    block.EndArray();
    block.EndObject();
    recording.block(62, std::string_view(buffer.GetString(), buffer.GetSize()));
  }
  return counts;
}

}  // namespace dataparser::bench
