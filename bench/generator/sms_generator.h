// The SMS and iMessage generator: N conversations holding M messages in total, written as the
// engine's SMS export (one callback 56 naming message files of "chat_sessions").
//
// Realistic shape: texts of 0 to 500 bytes in several scripts, some subjects, one conversation
// in five a group with 2 to 8 members, one message in ten with "media_info" (1 to 3 entries),
// one in fifty deleted. Attachment files exist on disk (a pool of small files that messages
// share). Deterministic from the seed.
#pragma once

#include <cstdint>

#include "bench/generator/recording_writer.h"

namespace dataparser::bench {

struct SmsOptions {
  std::int64_t messages = 1000;
  std::int64_t conversations = 100;
  std::uint64_t seed = 1;
  // Whole conversations go into one message file until it holds about this many messages.
  std::int64_t messagesPerFile = 100000;
};

struct GeneratedCounts {
  std::int64_t records = 0;  // messages written (media_info entries count once)
  std::int64_t files = 0;    // message files
};

GeneratedCounts generateSms(RecordingWriter& recording, const SmsOptions& options);

}  // namespace dataparser::bench
