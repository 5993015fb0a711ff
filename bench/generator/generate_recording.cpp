// generate_recording: writes a large, deterministic recorded scan for the benchmarks.
//
//   generate_recording sms --messages 1000000 --conversations 10000 --seed 1 --out DIR
//   generate_recording contacts --contacts 100000 --seed 1 --out DIR
//   generate_recording photos --photos 100000 --seed 1 --out DIR
//   generate_recording wechat --messages 1000000 --conversations 5000 --seed 1 --out DIR
//   generate_recording backup --messages 1000000 --conversations 10000 --seed 1 --out DIR
//
// "backup" writes a device backup folder (Manifest.plist, Manifest.db and an sms.db stored under
// its hashed name) instead of a recording.
//
// Each data type adds its generator to the table below.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>

#include "bench/generator/contacts_generator.h"
#include "bench/generator/photo_generator.h"
#include "bench/generator/sms_generator.h"
#include "bench/generator/wechat_generator.h"
#include "bench/generator/whatsapp_generator.h"
#include "tests/backup_fixture.h"

int main(int argc, char** argv) {
  using namespace dataparser::bench;
  CLI::App app{"Writes a deterministic recorded scan for the benchmarks"};
  std::string kind;
  std::string out;
  SmsOptions sms;
  ContactsOptions contacts;
  PhotoOptions photos;
  WeChatOptions wechat;
  app.add_option("kind", kind, "Data type to generate")
      ->required()
      ->check(CLI::IsMember({"sms", "contacts", "photos", "whatsapp", "wechat", "backup"}));
  app.add_option("--out", out, "Recording folder to write (must not exist)")->required();
  app.add_option("--messages", sms.messages, "Number of records")->check(CLI::PositiveNumber);
  app.add_option("--conversations", sms.conversations, "Number of conversations")
      ->check(CLI::PositiveNumber);
  app.add_option("--contacts", contacts.contacts, "Number of contacts")->check(CLI::PositiveNumber);
  app.add_option("--contacts-per-file", contacts.contactsPerFile, "Contacts per contact file")
      ->check(CLI::PositiveNumber);
  app.add_option("--photos", photos.photos, "Number of photo records")->check(CLI::PositiveNumber);
  std::uint64_t seed = 1;
  app.add_option("--seed", seed, "Random seed");
  CLI11_PARSE(app, argc, argv);
  sms.seed = seed;
  contacts.seed = seed;
  photos.seed = seed;
  if (std::filesystem::exists(out)) {
    std::fprintf(stderr, "generate_recording: %s exists already\n", out.c_str());
    return 1;
  }
  if (kind == "backup") {
    dataparser::testing::BackupBuilder backup(out);
    dataparser::testing::TestDatabase db(backup.add("HomeDomain", "Library/SMS/sms.db"));
    dataparser::testing::createMessagesSchema(db);
    dataparser::testing::fillMessages(db, sms.messages, sms.conversations,
                                      static_cast<std::uint32_t>(sms.seed));
    std::printf("generated backup: records=%lld folder=%s\n", static_cast<long long>(sms.messages),
                out.c_str());
    return 0;
  }
  using Generator = std::function<GeneratedCounts(RecordingWriter&)>;
  const std::map<std::string, Generator> generators = {
      {"sms", [&](RecordingWriter& recording) { return generateSms(recording, sms); }},
      {"contacts",
       [&](RecordingWriter& recording) { return generateContacts(recording, contacts); }},
      {"whatsapp", [&](RecordingWriter& recording) { return generateWhatsapp(recording, sms); }},
      {"photos", [&](RecordingWriter& recording) { return generatePhotos(recording, photos); }},
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
