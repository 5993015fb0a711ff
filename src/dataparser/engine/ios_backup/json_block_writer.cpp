#include "dataparser/engine/ios_backup/json_block_writer.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cmath>

#include "dataparser/util/text.h"

namespace dataparser {
namespace {

constexpr std::size_t kSpillBytes = 1u << 20;

}  // namespace

struct JsonBlockWriter::Impl {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer{buffer};
};

JsonBlockWriter::JsonBlockWriter() : impl_(std::make_unique<Impl>()) {}

JsonBlockWriter::JsonBlockWriter(const std::string& path) : impl_(std::make_unique<Impl>()) {
  file_ = std::fopen(path.c_str(), "wb");
  ok_ = file_ != nullptr;
}

JsonBlockWriter::~JsonBlockWriter() {
  if (file_ != nullptr) std::fclose(file_);
}

void JsonBlockWriter::spill() {
  if (file_ == nullptr || impl_->buffer.GetSize() < kSpillBytes) return;
  // The writer only appends to its buffer, so the written part can leave at any moment.
  if (std::fwrite(impl_->buffer.GetString(), 1, impl_->buffer.GetSize(), file_) !=
      impl_->buffer.GetSize()) {
    ok_ = false;
  }
  impl_->buffer.Clear();
}

void JsonBlockWriter::startObject() {
  impl_->writer.StartObject();
}

void JsonBlockWriter::endObject() {
  impl_->writer.EndObject();
  spill();
}

void JsonBlockWriter::startArray() {
  impl_->writer.StartArray();
}

void JsonBlockWriter::endArray() {
  impl_->writer.EndArray();
  spill();
}

void JsonBlockWriter::key(std::string_view name) {
  impl_->writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
}

void JsonBlockWriter::string(std::string_view value) {
  if (isValidUtf8(value)) {
    impl_->writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
    return;
  }
  const std::string repaired = repairedUtf8(value);
  impl_->writer.String(repaired.data(), static_cast<rapidjson::SizeType>(repaired.size()));
}

void JsonBlockWriter::integer(std::int64_t value) {
  impl_->writer.Int64(value);
}

void JsonBlockWriter::real(double value) {
  if (std::isfinite(value)) {
    impl_->writer.Double(value);
  } else {
    impl_->writer.Null();
  }
}

void JsonBlockWriter::null() {
  impl_->writer.Null();
}

std::string JsonBlockWriter::text() const {
  return std::string(impl_->buffer.GetString(), impl_->buffer.GetSize());
}

bool JsonBlockWriter::close() {
  if (file_ == nullptr) return ok_;
  if (std::fwrite(impl_->buffer.GetString(), 1, impl_->buffer.GetSize(), file_) !=
      impl_->buffer.GetSize()) {
    ok_ = false;
  }
  impl_->buffer.Clear();
  if (std::fclose(file_) != 0) ok_ = false;
  file_ = nullptr;
  return ok_;
}

}  // namespace dataparser
