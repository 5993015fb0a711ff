// Micro benchmarks of the helpers on the hot path of every parse: engine date texts, display
// dates, the address pattern and the file-kind tests.
//
//   cmake --preset release && cmake --build --preset release --target dataparser_microbench
//   build/release/bench/dataparser_microbench
#include <benchmark/benchmark.h>

#include <string>

#include "dataparser/model/attachment.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_kind.h"
#include "dataparser/util/regex.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

constexpr const char* kAddressPattern = ".*(?=@|-.*)";
const std::string kAddress = "86138001380001-1500000000@g.us";  // 30 characters

void BM_ParseEngineDate(benchmark::State& state) {
  const std::string text = "07-04-2021 08:09:10";
  for (auto _ : state)
    benchmark::DoNotOptimize(dateWithDateFormatter(text));
}
BENCHMARK(BM_ParseEngineDate);

void BM_PrintDisplayDate(benchmark::State& state) {
  const Date date = *dateWithDateFormatter("07-04-2021 08:09:10");
  for (auto _ : state)
    benchmark::DoNotOptimize(stringWithDateFormatter(date));
}
BENCHMARK(BM_PrintDisplayDate);

void BM_PrintLocalDate(benchmark::State& state) {
  const Date date = *dateWithDateFormatter("07-04-2021 08:09:10");
  for (auto _ : state)
    benchmark::DoNotOptimize(stringWithLocalDateFormatter(date));
}
BENCHMARK(BM_PrintLocalDate);

// The address pattern as later parsers use it: the compiled pattern looked up in the cache.
void BM_AddressPatternCached(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(regex::search(kAddress, kAddressPattern, regex::kCaseless));
  }
}
BENCHMARK(BM_AddressPatternCached);

// The same with the compiled pattern held by the caller.
void BM_AddressPatternHeld(benchmark::State& state) {
  auto compiled = regex::Regex::compile(kAddressPattern, regex::kCaseless);
  for (auto _ : state)
    benchmark::DoNotOptimize(compiled->search(kAddress));
}
BENCHMARK(BM_AddressPatternHeld);

// The text operation, which also copies the result.
void BM_AddressMatchWithPattern(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(matchWithPattern(kAddress, kAddressPattern));
}
BENCHMARK(BM_AddressMatchWithPattern);

void BM_FileKindImage(benchmark::State& state) {
  const std::string name = "/var/mobile/Media/DCIM/100APPLE/IMG_0001.JPG";
  for (auto _ : state)
    benchmark::DoNotOptimize(DPHelper::isImage(name));
}
BENCHMARK(BM_FileKindImage);

void BM_FileKindAudioMiss(benchmark::State& state) {
  const std::string name = "/var/mobile/Media/DCIM/100APPLE/IMG_0001.JPG";
  for (auto _ : state)
    benchmark::DoNotOptimize(DPHelper::isAudio(name));
}
BENCHMARK(BM_FileKindAudioMiss);

void BM_FileKindNonAscii(benchmark::State& state) {
  const std::string name = "Caf\xC3\xA9 photo \xC3\xA9t\xC3\xA9.JP\xC3\x89G";
  for (auto _ : state)
    benchmark::DoNotOptimize(DPHelper::isImage(name));
}
BENCHMARK(BM_FileKindNonAscii);

}  // namespace
}  // namespace dataparser

// Attachment classification: a fresh attachment per iteration, as a parser makes them, once
// through the flag table and once through the file-name tests.
void BM_AttachmentTypeFromFlag(benchmark::State& state) {
  for (auto _ : state) {
    dataparser::IOSAttachmentItem attachment;
    attachment.setFlag(3);
    benchmark::DoNotOptimize(attachment.type());
  }
}
BENCHMARK(BM_AttachmentTypeFromFlag);

void BM_AttachmentTypeFromFileName(benchmark::State& state) {
  for (auto _ : state) {
    dataparser::IOSAttachmentItem attachment;
    attachment.setDevicePath("/var/mobile/Library/SMS/Attachments/ab/01/IMG_0001.HEIC");
    benchmark::DoNotOptimize(attachment.type());
  }
}
BENCHMARK(BM_AttachmentTypeFromFileName);

void BM_AttachmentTypeOther(benchmark::State& state) {
  for (auto _ : state) {
    dataparser::IOSAttachmentItem attachment;
    attachment.setDevicePath("/var/mobile/Library/SMS/Attachments/ab/01/archive.zip");
    benchmark::DoNotOptimize(attachment.type());
  }
}
BENCHMARK(BM_AttachmentTypeOther);

BENCHMARK_MAIN();
