// The report viewer's static files (index.html, report.js, report.css), built into the library
// from resources/report so that an installed command needs no resource folder.
#pragma once

#include <span>
#include <string_view>

namespace dataparser {

struct ViewerAsset {
  std::string_view name;
  std::string_view content;
};

std::span<const ViewerAsset> viewerAssets();

}  // namespace dataparser
