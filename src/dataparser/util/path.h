// Path-text operations with the platform's path-string semantics, shared by every item that
// derives a name or an extension from a path. Pure text: nothing touches the file system.
//
//   lastPathComponent("/tmp/a.tiff") == "a.tiff"     lastPathComponent("/tmp/") == "tmp"
//   deletingLastPathComponent("/tmp") == "/"          deletingLastPathComponent("a") == ""
//   pathExtension("a.tar.gz") == "gz"                 pathExtension(".profile") == ""
//   deletingPathExtension("a.tar.gz") == "a.tar"      pathExtension("file.") == ""
//   appendingPathComponent("/tmp", "a") == "/tmp/a"
//
// Runs of slashes count as one and a trailing slash is ignored, as on the platform.
#pragma once

#include <string>
#include <string_view>

namespace dataparser::path {

std::string lastPathComponent(std::string_view path);
std::string deletingLastPathComponent(std::string_view path);
std::string pathExtension(std::string_view path);
std::string deletingPathExtension(std::string_view path);
std::string appendingPathComponent(std::string_view path, std::string_view component);

// Reduces a name that comes from input data to one safe path component: the last component
// only, without NUL bytes; "", "." and ".." become "_". Never lets a join leave its folder.
std::string safeComponent(std::string_view name);

}  // namespace dataparser::path
