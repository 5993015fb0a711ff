#include "bench/generator/photo_generator.h"

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

namespace dataparser::bench {
namespace {

void touch(const std::filesystem::path& path) {
  std::ofstream out(path, std::ios::binary);
}

void writeRecord(JsonWriter& w, const RecordingWriter& recording, TextSource& source,
                 std::int64_t index, std::int64_t& clock) {
  bool video = source.chance(0.125);
  bool edited = !video && source.chance(0.2);
  std::string name = fmt::format("IMG_{:05}.{}", index, video ? "MOV" : "HEIC");
  std::string folder = fmt::format("{}APPLE", 100 + index / 1000);
  std::string relative = fmt::format("files/DCIM/{}/{}", folder, name);
  touch(recording.file(relative));
  clock += source.between(60, 600);

  w.StartObject();
  writeString(w, "name", name);
  writeString(w, "date", engineDate(clock));
  writeInteger(w, "filesize", source.between(100000, 8000000));
  writeInteger(w, "is_video", video ? 1 : 0);
  w.Key("duration");
  w.Double(video ? static_cast<double>(source.between(1, 600)) + 0.5 : 0.0);
  writeInteger(w, "has_adjustments", edited ? 1 : 0);
  writeInteger(w, "is_deleted", source.chance(0.02) ? 1 : 0);
  writeString(w, "origin_file_path", recording.absolutePath(relative));
  writeString(w, "other_file_path", fmt::format("/var/mobile/Media/DCIM/{}/{}", folder, name));
  if (video) {
    std::string thumb = fmt::format("files/Thumbnails/{}/{}.JPG", folder, name);
    touch(recording.file(thumb));
    writeString(w, "thumb_file_path", recording.absolutePath(thumb));
  }
  if (edited) {
    writeString(w, "mutation_device_path",
                fmt::format("/var/mobile/Media/PhotoData/Mutations/DCIM/{}/{}/Adjustments/"
                            "FullSizeRender.jpg",
                            folder, name));
  }
  w.EndObject();
}

}  // namespace

GeneratedCounts generatePhotos(RecordingWriter& recording, const PhotoOptions& options) {
  TextSource source(options.seed);
  GeneratedCounts counts;
  std::vector<std::string> files;
  std::int64_t clock = 1577836800;  // 2020-01-01
  for (std::int64_t done = 0; done < options.photos;) {
    std::string relative = fmt::format("files/photos/batch-{:04}.json", files.size() + 1);
    files.push_back(RecordingWriter::rootPath(relative));
    JsonFile file(recording.file(relative));
    file.writer().StartObject();
    file.writer().Key("photo_data");
    file.writer().StartArray();
    for (std::int64_t i = 0; i < options.photosPerFile && done < options.photos; ++i, ++done) {
      writeRecord(file.writer(), recording, source, done + 1, clock);
    }
    file.writer().EndArray();
    file.writer().EndObject();
    file.close();
  }
  counts.records = options.photos;
  counts.files = static_cast<std::int64_t>(files.size());

  std::string block = "{\"photo_file_path\": [";
  for (std::size_t i = 0; i < files.size(); ++i) {
    block += (i ? ", \"" : "\"") + files[i] + "\"";
  }
  block += "]}";
  recording.block(66, block);
  return counts;
}

}  // namespace dataparser::bench
