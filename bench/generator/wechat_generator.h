// The WeChat generator: accounts holding N conversations with M messages in total, written as
// the engine's WeChat export (callback 62, one block per account, each naming per-conversation
// message files whose "content" lists the messages).
//
// Realistic shape: texts of 0 to 300 bytes in several scripts; one conversation in five a group
// with 3 to 30 members; one in ten a subscription. Messages: mostly text, then photos (with a
// thumbnail), voice notes, videos, money transfers and red packets, locations, links, stickers
// without an address, notices; one in fifty deleted. A conversation's messages are split over
// files of at most 500. Media files exist on disk (a pool of small files that messages share).
// Deterministic from the seed.
#pragma once

#include <cstdint>

#include "bench/generator/recording_writer.h"
#include "bench/generator/sms_generator.h"

namespace dataparser::bench {

struct WeChatOptions {
  std::int64_t messages = 1000;
  std::int64_t conversations = 100;
  std::int64_t accounts = 2;
  std::uint64_t seed = 1;
  std::int64_t messagesPerFile = 500;
};

GeneratedCounts generateWeChat(RecordingWriter& recording, const WeChatOptions& options);

}  // namespace dataparser::bench
