// The download kinds of startDownloadFilesWithType: a 32-bit set of its own, not IOSDataType
// values (calendar attachments are 0x400 here, which is the contact code elsewhere).
#pragma once

#include <cstdint>

namespace dataparser::icloud {

inline constexpr std::uint32_t kDownloadPhotos = 0x2;
inline constexpr std::uint32_t kDownloadVideos = 0x4;
inline constexpr std::uint32_t kDownloadNoteAttachments = 0x100;
inline constexpr std::uint32_t kDownloadCalendarAttachments = 0x400;

}  // namespace dataparser::icloud
