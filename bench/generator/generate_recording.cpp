// generate_recording: writes a large, deterministic recorded scan for the benchmarks.
//
//   generate_recording sms --messages 1000000 --conversations 10000 --seed 1 --out DIR
//   generate_recording wechat --messages 1000000 --conversations 5000 --seed 1 --out DIR
//
// Each data type adds its generator to the table below.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>

#include "bench/generator/sms_generator.h"
#include "bench/generator/wechat_generator.h"

int main(int argc, char** argv) {
  using namespace dataparser::bench;
  CLI::App app{"Writes a deterministic recorded scan for the benchmarks"};
  std::string kind;
  std::string out;
  SmsOptions sms;
  WeChatOptions wechat;
  app.add_option("kind", kind, "Data type to generate")
      ->required()
      ->check(CLI::IsMember({"sms", "wechat"}));
  app.add_option("--out", out, "Recording folder to write (must not exist)")->required();
  app.add_option("--messages", sms.messages, "Number of records")->check(CLI::PositiveNumber);
  app.add_option("--conversations", sms.conversations, "Number of conversations")
      ->check(CLI::PositiveNumber);
  app.add_option("--seed", sms.seed, "Random seed");
  CLI11_PARSE(app, argc, argv);

  if (std::filesystem::exists(out)) {
    std::fprintf(stderr, "generate_recording: %s exists already\n", out.c_str());
    return 1;
  }
  using Generator = std::function<GeneratedCounts(RecordingWriter&)>;
  const std::map<std::string, Generator> generators = {
      {"sms", [&](RecordingWriter& recording) { return generateSms(recording, sms); }},
      {"wechat",
       [&](RecordingWriter& recording) {
         wechat.messages = sms.messages;
         wechat.conversations = sms.conversations;
         wechat.seed = sms.seed;
         return generateWeChat(recording, wechat);
       }},
  };
  try {
    RecordingWriter recording(out);
    GeneratedCounts counts = generators.at(kind)(recording);
    std::printf("generated %s: records=%lld files=%lld folder=%s\n", kind.c_str(),
                static_cast<long long>(counts.records), static_cast<long long>(counts.files),
                out.c_str());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "generate_recording: %s\n", error.what());
    return 1;
  }
  return 0;
}
