// The photo-library generator: N camera-roll records written as the engine's photo export (one
// callback 66 naming batch files of "photo_data"), each record naming a file that exists on
// disk (an empty stand-in: listing never opens it).
//
// Realistic shape: one record in eight a video with a duration and a thumbnail, one in five
// edited (an adjustment path), one in fifty deleted, dates one to ten minutes apart, sizes from
// 100 KB to 8 MB. Deterministic from the seed.
#pragma once

#include <cstdint>

#include "bench/generator/recording_writer.h"
#include "bench/generator/sms_generator.h"

namespace dataparser::bench {

struct PhotoOptions {
  std::int64_t photos = 1000;
  std::uint64_t seed = 1;
  std::int64_t photosPerFile = 10000;
};

GeneratedCounts generatePhotos(RecordingWriter& recording, const PhotoOptions& options);

}  // namespace dataparser::bench
