// The dispatch table of `analyzeData`: for each data type, how its parser is made or fed, which
// extra lists it reports, and which attachment list of the other-attachment parser it merges
// with.
//
// Three kinds of row:
//   made   a new parser per piece, from a factory (`parserWithJSONData` with two or three
//          arguments; the three-argument form also receives the coordinator's `deviceBackup`);
//   fed    a long-lived parser, made at the start of each scan by its slot's maker and fed with
//          `addJSONData`;
//   media  the other-attachment parser, fed after its `attachmentType` is set to the row's type;
//          the list of that source is reported under the row's report code.
//
// A row whose parser class does not exist yet has no factory (or its slot no maker) and reports
// nothing. Adding a parser class is a one-line change of its row in dispatch.cpp, for example
//   made(IOSDataTypeSMS, FactoryArity::kThree, factory3<IOSSMSParser>(), kResultSMSAttachments),
// and tests or hosts may install their own factories with `setFactory` / `setSlotMaker`.
//
// Thread safety: a table is a value; copy it, change the copy, install it on the coordinator.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "dataparser/core/data_type.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/model/other_attachment_lists.h"

namespace dataparser {

// The long-lived parsers of a scan.
enum class ParserSlot : std::uint8_t {
  kAppPhoto,
  kAppVideo,
  kAppAudio,
  kAppDocument,
  kKikThumb,
  kOtherAttachment,
  kWeChat,
  kLine,
  kKik,
  kVoiceMemo,
  kReminder,
};
inline constexpr std::size_t kParserSlotCount = 11;

// The six lists of the other-attachment parser.
enum class AttachmentListName : std::uint8_t {
  kNone,
  kWhatsapp,
  kKik,
  kLine,
  kViber,
  kWechat,
  kNote,
};

// The list of that name; nullptr for kNone.
ItemList* attachmentList(IOSOtherAttachmentLists& lists, AttachmentListName name);

// The union of two attachment lists by identity (the same shared item counts once): the items of
// `first` in their order, then those of `second` that `first` lacks.
ItemList mergeAttachments(const ItemList& first, const ItemList& second);

// Attachment lists are reported under (extra code AND this mask), call lists under (extra code
// AND kCallReportMask), photo-library videos when the extra code holds kResultPhotoVideos.
inline constexpr IOSDataType kAttachmentReportMask = 0xba5540000;
inline constexpr IOSDataType kCallReportMask = 0x10001000;

using ParserFactory = std::function<ParserPtr(JSONData data, bool parseDeleted, bool deviceBackup)>;
using ParserMaker = std::function<ParserPtr()>;

// Which `parserWithJSONData` a made row calls: (data, parseDeleted) or (data, parseDeleted,
// deviceBackup). Two-argument rows get deviceBackup false.
enum class FactoryArity : std::uint8_t { kTwo, kThree };

template <class P>
ParserFactory factory2() {
  return [](JSONData data, bool parseDeleted, bool) -> ParserPtr {
    return P::parserWithJSONData(data, parseDeleted);
  };
}
template <class P>
ParserFactory factory3() {
  return [](JSONData data, bool parseDeleted, bool deviceBackup) -> ParserPtr {
    return P::parserWithJSONData(data, parseDeleted, deviceBackup);
  };
}
template <class P>
ParserMaker plainConstructor() {
  return []() -> ParserPtr { return std::make_shared<P>(); };
}

enum class RowKind : std::uint8_t { kMade, kFed, kMedia };

struct DispatchRow {
  IOSDataType type = 0;
  RowKind kind = RowKind::kMade;
  FactoryArity arity = FactoryArity::kTwo;  // made rows
  ParserFactory factory;                    // made rows; empty while the class does not exist
  ParserSlot slot = ParserSlot::kOtherAttachment;  // fed and media rows
  bool feedsDeviceBackup = false;  // fed and media rows: set `deviceBackup` before feeding
  // Made and fed rows: the extra-report code. Media rows: the code the list is reported under.
  IOSDataType extraReport = 0;
  // Made and fed rows: the list merged with the parser's attachments. Media rows: the list fed
  // and reported.
  AttachmentListName attachments = AttachmentListName::kNone;
};

class DispatchTable {
 public:
  // The library's rows, with the parser classes that exist.
  static DispatchTable standard();

  // The row of `type`, or nullptr: a type without a row reports nothing.
  const DispatchRow* row(IOSDataType type) const;
  std::span<const DispatchRow> rows() const { return rows_; }
  const ParserMaker& slotMaker(ParserSlot slot) const;

  // Installs the factory of a made row; false when `type` has no made row.
  bool setFactory(IOSDataType type, ParserFactory factory);
  void setSlotMaker(ParserSlot slot, ParserMaker maker);

 private:
  std::vector<DispatchRow> rows_;
  std::array<ParserMaker, kParserSlotCount> slotMakers_;
};

}  // namespace dataparser
