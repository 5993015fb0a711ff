#include "dataparser/util/path.h"

#include <algorithm>

namespace dataparser::path {
namespace {

// Collapses runs of slashes and drops one trailing slash (a lone "/" stays).
std::string fixSlashes(std::string_view path) {
  std::string fixed;
  fixed.reserve(path.size());
  for (char c : path) {
    if (c == '/' && !fixed.empty() && fixed.back() == '/') continue;
    fixed.push_back(c);
  }
  if (fixed.size() > 1 && fixed.back() == '/') fixed.pop_back();
  return fixed;
}

// Index where the last component of a fixed path starts.
std::size_t startOfLastComponent(std::string_view fixed) {
  std::size_t slash = fixed.rfind('/');
  return slash == std::string_view::npos ? 0 : slash + 1;
}

// Index just after the extension's dot, or npos when the last component has no extension.
// A leading dot (".profile") and the component ".." are not extensions.
std::size_t startOfExtension(std::string_view fixed) {
  std::size_t componentStart = startOfLastComponent(fixed);
  std::size_t dot = fixed.rfind('.');
  if (dot == std::string_view::npos || dot < componentStart || dot == componentStart) {
    return std::string_view::npos;
  }
  if (dot == fixed.size() - 1 && dot == componentStart + 1 && fixed[componentStart] == '.') {
    return std::string_view::npos;
  }
  return dot + 1;
}

}  // namespace

std::string lastPathComponent(std::string_view path) {
  std::string fixed = fixSlashes(path);
  if (fixed.size() <= 1) return fixed;
  return fixed.substr(startOfLastComponent(fixed));
}

std::string deletingLastPathComponent(std::string_view path) {
  std::string fixed = fixSlashes(path);
  if (fixed == "/" || fixed.empty()) return fixed;
  std::size_t start = startOfLastComponent(fixed);
  if (start == 0) return "";
  if (start == 1) return "/";
  return fixed.substr(0, start - 1);
}

std::string pathExtension(std::string_view path) {
  std::string fixed = fixSlashes(path);
  if (fixed.size() <= 1) return "";
  std::size_t start = startOfExtension(fixed);
  return start == std::string::npos ? "" : fixed.substr(start);
}

std::string deletingPathExtension(std::string_view path) {
  std::string fixed = fixSlashes(path);
  if (fixed.size() <= 1) return fixed;
  std::size_t start = startOfExtension(fixed);
  return start == std::string::npos ? fixed : fixed.substr(0, start - 1);
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
  if (component.empty()) return std::string(path);
  if (path.empty()) return std::string(component);
  std::string joined(path);
  if (joined.back() != '/') joined.push_back('/');
  joined.append(component);
  return joined;
}

std::string safeComponent(std::string_view name) {
  std::string component = lastPathComponent(name);
  component.erase(std::remove(component.begin(), component.end(), '\0'), component.end());
  component.erase(std::remove(component.begin(), component.end(), '/'), component.end());
  if (component.empty() || component == "." || component == "..") return "_";
  return component;
}

}  // namespace dataparser::path
