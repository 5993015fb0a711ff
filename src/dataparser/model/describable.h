// Reflection for model objects: every item and payload object names its class and lists its
// fields, in declaration order, to a FieldVisitor, reading each through its getter (so lazy
// fields are computed). The CLI's JSON export and the tests use this; nothing in the scan does.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "dataparser/util/date.h"

namespace dataparser {

class Image;
class FieldVisitor;

class Describable {
 public:
  virtual ~Describable() = default;
  // The class name, for example "IOSSMSSingleItem".
  virtual std::string_view className() const = 0;
  // Calls `visitor.field(name, getter())` for every field of the class, base fields first.
  virtual void describe(FieldVisitor& visitor) const = 0;
};

// Receives fields. Inside arrays, `name` is empty.
class FieldVisitor {
 public:
  virtual ~FieldVisitor() = default;

  void field(std::string_view name, std::string_view value) { onString(name, value); }
  void field(std::string_view name, const std::string& value) { onString(name, value); }
  void field(std::string_view name, const char* value) { onString(name, value); }
  void field(std::string_view name, bool value) { onBool(name, value); }
  template <std::integral T>
  requires(!std::same_as<T, bool>) void field(std::string_view name, T value) {
    if constexpr (std::is_signed_v<T>) {
      onInteger(name, static_cast<std::int64_t>(value));
    } else {
      onUnsigned(name, static_cast<std::uint64_t>(value));
    }
  }
  void field(std::string_view name, double value) { onDouble(name, value); }
  void field(std::string_view name, float value) { onDouble(name, static_cast<double>(value)); }
  void field(std::string_view name, const OptionalDate& value) {
    if (value) {
      onDate(name, *value);
    } else {
      onNull(name);
    }
  }
  void field(std::string_view name, Date value) { onDate(name, value); }
  void field(std::string_view name, const std::shared_ptr<const Image>& value) {
    if (value) {
      onImage(name, *value);
    } else {
      onNull(name);
    }
  }
  void field(std::string_view name, const Describable* value) {
    if (value == nullptr) {
      onNull(name);
      return;
    }
    onObjectBegin(name, value->className());
    value->describe(*this);
    onObjectEnd();
  }
  template <class T>
  requires(!std::same_as<std::remove_cv_t<T>, Image>) &&
      std::derived_from<T, Describable> void field(std::string_view name,
                                                   const std::shared_ptr<T>& value) {
    field(name, static_cast<const Describable*>(value.get()));
  }
  template <class T>
  void field(std::string_view name, const std::optional<T>& value) {
    if (value) {
      field(name, *value);
    } else {
      onNull(name);
    }
  }
  template <class T>
  void field(std::string_view name, const std::vector<T>& values) {
    onArrayBegin(name);
    for (const T& value : values)
      field(std::string_view(), value);
    onArrayEnd();
  }
  template <class... T>
  void field(std::string_view name, const std::variant<T...>& value) {
    std::visit([&](const auto& alternative) { field(name, alternative); }, value);
  }

 protected:
  virtual void onNull(std::string_view name) = 0;
  virtual void onString(std::string_view name, std::string_view value) = 0;
  virtual void onInteger(std::string_view name, std::int64_t value) = 0;
  virtual void onUnsigned(std::string_view name, std::uint64_t value) = 0;
  virtual void onDouble(std::string_view name, double value) = 0;
  virtual void onBool(std::string_view name, bool value) = 0;
  virtual void onDate(std::string_view name, Date value) = 0;
  virtual void onImage(std::string_view name, const Image& image) = 0;
  virtual void onObjectBegin(std::string_view name, std::string_view className) = 0;
  virtual void onObjectEnd() = 0;
  virtual void onArrayBegin(std::string_view name) = 0;
  virtual void onArrayEnd() = 0;
};

}  // namespace dataparser
