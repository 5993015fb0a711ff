#include "tools/dataparser/download_command.h"

#include <fmt/core.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "dataparser/net/file_downloader.h"
#include "dataparser/util/path.h"
#include "dataparser/util/text.h"

namespace dataparser::cli {
namespace {

struct DownloadOptions {
  std::string url;
  std::string destination;
  bool resume = false;
  std::int64_t size = 0;
  std::string caFile;
};

// Draws "[=====>     ]  42%  12.3 / 30.0 MiB" on stderr, at most ten times a second. Used only
// from the MainQueue.
class ProgressBar {
 public:
  void update(std::int64_t total, std::int64_t received) {
    auto now = std::chrono::steady_clock::now();
    if (received < total && now - lastDrawn_ < std::chrono::milliseconds(100)) return;
    lastDrawn_ = now;
    constexpr int kWidth = 30;
    double fraction = total > 0 ? std::min(1.0, static_cast<double>(received) / total) : 0.0;
    int filled = static_cast<int>(fraction * kWidth);
    std::string bar(static_cast<std::size_t>(filled), '=');
    if (filled < kWidth) bar += '>';
    bar.resize(kWidth, ' ');
    constexpr double kMiB = 1024.0 * 1024.0;
    fmt::print(stderr, "\r[{}] {:3.0f}%  {:.1f} / {:.1f} MiB", bar, fraction * 100.0,
               static_cast<double>(received) / kMiB, static_cast<double>(total) / kMiB);
    std::fflush(stderr);
    drawn_ = true;
  }
  bool drawn() const { return drawn_; }

 private:
  std::chrono::steady_clock::time_point lastDrawn_{};
  bool drawn_ = false;
};

// The file that DEST names, decided before any byte is fetched: inside DEST when it is a folder
// (named after the URL's last path segment), else DEST itself, whose folder must exist. "" and
// `problem` when there is no such file.
std::string destinationFile(const std::string& url, const std::string& dest, std::string* problem) {
  namespace fs = std::filesystem;
  std::error_code error;
  if (dest.empty()) {
    *problem = "DEST is empty";
    return "";
  }
  if (fs::is_directory(dest, error)) {
    std::string_view rest = url;
    if (std::size_t scheme = rest.find("://"); scheme != std::string_view::npos) {
      rest.remove_prefix(scheme + 3);
    }
    rest = rest.substr(0, rest.find_first_of("?#"));
    std::size_t slash = rest.find('/');
    std::string_view segment =
        slash == std::string_view::npos ? std::string_view() : rest.substr(rest.rfind('/') + 1);
    std::string decoded = URLDecodedString(segment);
    if (decoded.empty() || decoded == "." || decoded == "..") {
      *problem = dest + " is a folder and the URL names no file: give DEST as a file path";
      return "";
    }
    return (fs::path(dest) / path::safeComponent(decoded)).string();
  }
  fs::path parent = fs::path(dest).parent_path();
  if (parent.empty()) parent = ".";
  if (!fs::is_directory(parent, error)) {
    *problem = "the folder " + parent.string() + " of DEST does not exist";
    return "";
  }
  return dest;
}

int runDownload(const DownloadOptions& options) {
  std::string problem;
  const std::string destination = destinationFile(options.url, options.destination, &problem);
  if (destination.empty()) {
    fmt::print(stderr, "dataparser download: {}\n", problem);
    return 1;
  }
  if (!options.caFile.empty()) DownloadSession::setAdditionalCAFile(options.caFile);
  auto bar = std::make_shared<ProgressBar>();
  FileDownloader::ProgressHandler progress;
  if (::isatty(STDERR_FILENO) == 1) {
    progress = [bar](std::int64_t total, std::int64_t received) { bar->update(total, received); };
  }
  auto finished = std::make_shared<std::promise<std::optional<DownloadError>>>();
  std::future<std::optional<DownloadError>> outcome = finished->get_future();
  auto downloader = FileDownloader::initWithURL(
      options.url, destination, std::move(progress),
      [finished](std::optional<DownloadError> error) { finished->set_value(std::move(error)); });
  downloader->setResumable(options.resume);
  if (options.size > 0) downloader->setExpectedContentLength(options.size);
  downloader->start();
  // Waits on this thread: the events arrive on the MainQueue's own thread.
  std::optional<DownloadError> error = outcome.get();
  if (bar->drawn()) std::fputc('\n', stderr);

  if (error) {
    fmt::print(stderr, "dataparser download: {}\n", error->message);
    return 1;
  }
  const std::string used = downloader->destinationPath();
  if (used.empty()) {
    fmt::print(stderr,
               "dataparser download: the download did not reach its size, so nothing was moved "
               "into place (a server that announces no size needs --size BYTES)\n");
    return 1;
  }
  fmt::print("{}\n", used);
  return 0;
}

}  // namespace

void addDownloadCommand(CLI::App& app) {
  auto options = std::make_shared<DownloadOptions>();
  CLI::App* command = app.add_subcommand(
      "download", "Download URL to DEST, resumably; an existing DEST is never replaced");
  command->add_option("URL", options->url, "http or https URL")->required();
  command
      ->add_option("DEST", options->destination,
                   "destination file, or an existing folder to put the URL's file in")
      ->required();
  command->add_flag("--resume", options->resume,
                    "continue the cache file of an earlier attempt instead of starting over");
  command
      ->add_option("--size", options->size,
                   "total size in bytes, for servers that do not announce it")
      ->check(CLI::PositiveNumber);
  command
      ->add_option("--cacert", options->caFile,
                   "PEM file of an extra certificate authority to trust")
      ->check(CLI::ExistingFile);
  command->callback([options] {
    if (int status = runDownload(*options); status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace dataparser::cli
