#include "dataparser/core/ios_data_parser.h"

#include <fmt/format.h>

#include <utility>

#include "dataparser/core/callback_bridge.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

using Operation = IOSDataParserDelegate::Operation;

// How the run log names the observer: "(null)" when there is none.
std::string describeObserver(const std::shared_ptr<IOSDataParserDelegate>& observer) {
  if (!observer) return "(null)";
  return fmt::format("<IOSDataParserDelegate: {}>", static_cast<const void*>(observer.get()));
}

IOSOtherAttachmentLists* otherLists(const ParserPtr& parser) {
  return dynamic_cast<IOSOtherAttachmentLists*>(parser.get());
}

}  // namespace

IOSDataParser& IOSDataParser::shared() {
  // Never destroyed: engine and backup threads may still call in while the process exits.
  static IOSDataParser* const instance = new IOSDataParser();
  return *instance;
}

IOSDataParser::IOSDataParser()
    : engine_(makeDefaultPackageEngine()),
      androidEngine_(makeDefaultAndroidPackageEngine()),
      backupManager_(makeDefaultBackupManager()),
      table_(DispatchTable::standard()) {}

// ---- collaborators and fields ----------------------------------------------------------------

void IOSDataParser::setPackageEngine(std::shared_ptr<PackageEngine> engine) {
  if (!engine) engine = makeDefaultPackageEngine();
  std::lock_guard lock(mutex_);
  engine_.swap(engine);
}

std::shared_ptr<PackageEngine> IOSDataParser::packageEngine() const {
  return engine();
}

std::shared_ptr<PackageEngine> IOSDataParser::engine() const {
  std::lock_guard lock(mutex_);
  return engine_;
}

void IOSDataParser::setAndroidPackageEngine(std::shared_ptr<AndroidPackageEngine> engine) {
  if (!engine) engine = makeDefaultAndroidPackageEngine();
  std::lock_guard lock(mutex_);
  androidEngine_.swap(engine);
}

std::shared_ptr<AndroidPackageEngine> IOSDataParser::androidPackageEngine() const {
  std::lock_guard lock(mutex_);
  return androidEngine_;
}

void IOSDataParser::setBackupManager(std::shared_ptr<BackupManager> manager) {
  if (!manager) manager = makeDefaultBackupManager();
  std::lock_guard lock(mutex_);
  backupManager_.swap(manager);
}

std::shared_ptr<BackupManager> IOSDataParser::backupManager() const {
  std::lock_guard lock(mutex_);
  return backupManager_;
}

void IOSDataParser::setDispatchTable(DispatchTable table) {
  std::lock_guard lock(mutex_);
  std::swap(table_, table);
}

DispatchTable IOSDataParser::dispatchTable() const {
  std::lock_guard lock(mutex_);
  return table_;
}

std::shared_ptr<IOSDataParserDelegate> IOSDataParser::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_.lock();
}

void IOSDataParser::setDelegate(std::weak_ptr<IOSDataParserDelegate> delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = std::move(delegate);
}

std::string IOSDataParser::backupPath() const {
  std::lock_guard lock(mutex_);
  return backupPath_;
}

void IOSDataParser::setBackupPath(std::string path) {
  std::lock_guard lock(mutex_);
  backupPath_ = std::move(path);
}

std::shared_ptr<const BackupDevice> IOSDataParser::currentDevice() const {
  std::lock_guard lock(mutex_);
  return currentDevice_;
}

void IOSDataParser::setCurrentDevice(std::shared_ptr<const BackupDevice> device) {
  std::lock_guard lock(mutex_);
  currentDevice_ = std::move(device);
}

ItemList IOSDataParser::notes() const {
  std::lock_guard lock(mutex_);
  return notes_.value_or(ItemList());
}

ItemList IOSDataParser::notesAttachments() const {
  std::lock_guard lock(mutex_);
  return notesAttachments_.value_or(ItemList());
}

ParserPtr IOSDataParser::parserInSlot(ParserSlot slot) const {
  std::lock_guard lock(mutex_);
  return parsers_[static_cast<std::size_t>(slot)];
}

ParserPtr IOSDataParser::icloudParser(ICloudParser which) const {
  std::lock_guard lock(mutex_);
  return icloudParsers_[static_cast<std::size_t>(which)];
}

void IOSDataParser::setICloudParser(ICloudParser which, ParserPtr parser) {
  std::lock_guard lock(mutex_);
  icloudParsers_[static_cast<std::size_t>(which)].swap(parser);
}

// ---- preparation -----------------------------------------------------------------------------

void IOSDataParser::setupInterface() {
  std::string root = productDomainPath();
  std::string logFolder = path::appendingPathComponent(root, "Logs");
  std::string tempFolder = path::appendingPathComponent(root, "temp");
  createDirectories(logFolder);
  createDirectories(tempFolder);
  std::shared_ptr<PackageEngine> packageEngine = engine();
  packageEngine->InitPackageData(logFolder, configurationPath(), tempFolder);
  packageEngine->StartPackage(&CallbackFuction);
}

void IOSDataParser::setupParser() {
  backupStoped_.store(false);
  parseStoped_.store(false);
  DispatchTable table = dispatchTable();
  std::array<ParserPtr, kParserSlotCount> fresh;
  for (std::size_t slot = 0; slot < kParserSlotCount; ++slot) {
    if (const ParserMaker& maker = table.slotMaker(static_cast<ParserSlot>(slot))) {
      fresh[slot] = maker();
    }
  }
  std::lock_guard lock(mutex_);
  if (notes_) notes_->clear();
  if (notesAttachments_) notesAttachments_->clear();
  parsers_.swap(fresh);
  // The previous scan's parsers, now in `fresh`, are released after the lock.
}

void IOSDataParser::resetParser() {
  RunLog::write("*** {}", "-[IOSDataParser resetParser]");
  backupStoped_.store(false);
  parseStoped_.store(false);
  std::array<ParserPtr, kParserSlotCount> dropped;
  {
    std::lock_guard lock(mutex_);
    notes_.reset();
    notesAttachments_.reset();
    parsers_.swap(dropped);
  }
}

// ---- start operations ------------------------------------------------------------------------

void IOSDataParser::startParseWithBackupPath(const std::string& path) {
  RunLog::write("*** start parse backup: {}", path);
  setupParser();
  setupInterface();
  std::shared_ptr<PackageEngine> packageEngine = engine();
  packageEngine->AddBackupFolder(path);
  packageEngine->AddPackageFileFinish();
  RunLog::write("*** end add backup: {}", path);
}

void IOSDataParser::startParseCFSDataWithBackupPath(const std::string& path) {
  RunLog::write("*** start parse cfs backup: {}", path);
  setupParser();
  setupInterface();
  std::shared_ptr<PackageEngine> packageEngine = engine();
  // The engine's own scan codes of the CFS scan.
  for (ScanType scan : {8, 9, 15}) {
    packageEngine->AddTypeNeedScan(scan);
  }
  packageEngine->AddTypeBackupFolder(path);
  packageEngine->AddPackageFileFinish();
  RunLog::write("*** end add cfs backup: {}", path);
}

void IOSDataParser::startParseAppWithBackupPath(const std::string& path) {
  RunLog::write("*** start parse app backup: {}", path);
  setupParser();
  setupInterface();
  std::shared_ptr<PackageEngine> packageEngine = engine();
  packageEngine->AddTypeNeedScan(ScanTypeForIOSDataType(selectedDataType()));
  packageEngine->AddTypeBackupFolder(path);
  packageEngine->AddPackageFileFinish();
  RunLog::write("*** end add app backup: {}", path);
}

void IOSDataParser::startParseFullBackupWithPath(const std::string& path) {
  setupParser();
  setupInterface();
  // The caller ends the input later (parseDeviceFileFinished).
  engine()->AddBackupFolder(path);
}

void IOSDataParser::startParsePhotoWithBackupPath(const std::string& path) {
  engine()->AddPhotoBackupFolder(path);
}

void IOSDataParser::startParseVoiceMemoWithBackupPath(const std::string& path) {
  engine()->AddVoiceMemosBackupFolder(path);
}

void IOSDataParser::startParseDeviceBackup() {
  setupParser();
  setupInterface();
  engine()->AddTypeNeedScan(0);
}

void IOSDataParser::startBackupAndParse(std::shared_ptr<const BackupDevice> device,
                                        const std::string& withBackupPath,
                                        std::int64_t backupCategory, bool isMove) {
  setupParser();
  setupInterface();
  if (!device) {
    startParseWithBackupPath(withBackupPath);
    return;
  }
  setCurrentDevice(device);
  std::shared_ptr<BackupManager> manager = backupManager();
  manager->setObserver(this);
  manager->backupDevice(std::move(device), withBackupPath, /*isIncrement=*/false, backupCategory,
                        isMove);
}

void IOSDataParser::parseDeviceFile(const std::string& deviceFileName,
                                    const std::string& localPath) {
  if (!fileExists(localPath)) return;
  // The names go in as they are, without JSON escaping, as the engine has always received them.
  std::string text = fmt::format(
      "{{\"files\" : [ {{\"relative_fullpath\" : \"{}\", \"src_fullpath\" : \"{}\"}} ]}}",
      deviceFileName, localPath);
  engine()->AddPackageFile(text.c_str(), static_cast<int>(text.size()));
}

void IOSDataParser::parseDeviceFileFinished() {
  engine()->AddPackageFileFinish();
}

std::string IOSDataParser::encodeToJosnString(const json::View& object) {
  std::string text;
  if (object.isObject() || object.isArray()) {
    text = object.toJsonText(/*pretty=*/true);
  } else {
    RunLog::write("Got an error: {}", "Invalid top-level type in JSON write");
  }
  constexpr std::string_view kSpace = " \t\n\r\v\f";
  std::size_t first = text.find_first_not_of(kSpace);
  if (first == std::string::npos) return {};
  std::size_t last = text.find_last_not_of(kSpace);
  return text.substr(first, last - first + 1);
}

// ---- stopping --------------------------------------------------------------------------------

void IOSDataParser::stopParse() {
  // The flag goes first, so that data the engine still delivers is ignored.
  parseStoped_.store(true);
  engine()->StopPackage();
  androidPackageEngine()->QMDataStop();
  std::array<ParserPtr, 5> icloud;
  {
    std::lock_guard lock(mutex_);
    icloud = icloudParsers_;
  }
  for (const ParserPtr& parser : icloud) {
    if (parser) parser->stopParser();
  }
  // The long-lived parsers too; a parser its factory is still building sees the flag above
  // through the ParseStopScope of dispatch.
  std::array<ParserPtr, kParserSlotCount> slots;
  {
    std::lock_guard lock(mutex_);
    slots = parsers_;
  }
  for (const ParserPtr& parser : slots) {
    if (parser) parser->stopParser();
  }
}

void IOSDataParser::stopBackup() {
  backupStoped_.store(true);
  backupManager()->stopBackUp();
}

// ---- engine reports --------------------------------------------------------------------------

std::shared_ptr<IOSDataParserDelegate> IOSDataParser::observerFor(Operation operation) const {
  std::shared_ptr<IOSDataParserDelegate> observer = delegate();
  if (observer && observer->responds(operation)) return observer;
  return nullptr;
}

void IOSDataParser::report(const std::shared_ptr<IOSDataParserDelegate>& observer,
                           const ItemList& list, IOSDataType type) {
  // After a stop the observer hears nothing more of this scan but its end.
  if (list.empty() || parseStoped_.load()) return;
  observer->didFetchedData(*this, ItemList(list), type);
}

void IOSDataParser::analyzeData(JSONData data, IOSDataType type) {
  if (parseStoped_.load()) return;
  semaphore_.acquire();
  struct Release {
    std::binary_semaphore& semaphore;
    ~Release() { semaphore.release(); }
  } release{semaphore_};
  ParseStopScope stopScope(parseStoped_);
  dispatch(data, type);
}

void IOSDataParser::dispatch(JSONData data, IOSDataType type) {
  DispatchRow row;
  {
    std::lock_guard lock(mutex_);
    const DispatchRow* found = table_.row(type);
    if (found == nullptr) return;
    row = *found;
  }

  ParserPtr parser;
  if (row.kind == RowKind::kMade) {
    if (!row.factory) return;
    bool withDeviceBackup = row.arity == FactoryArity::kThree && deviceBackup();
    parser = row.factory(data, parseDeleted(), withDeviceBackup);
  } else {
    parser = parserInSlot(row.slot);
    if (!parser) return;
    if (row.kind == RowKind::kMedia) {
      if (IOSOtherAttachmentLists* lists = otherLists(parser)) lists->setAttachmentType(type);
    }
    if (row.feedsDeviceBackup) parser->setDeviceBackup(deviceBackup());
    parser->setParseDeleted(parseDeleted());
    parser->addJSONData(data);
  }
  if (!parser) return;

  if (row.kind == RowKind::kMedia) {
    reportMedia(row, otherLists(parser));
    return;
  }

  if (row.attachments != AttachmentListName::kNone) {
    ParserPtr other = parserInSlot(ParserSlot::kOtherAttachment);
    IOSOtherAttachmentLists* lists = otherLists(other);
    ItemList* collected = lists != nullptr ? attachmentList(*lists, row.attachments) : nullptr;
    ItemList merged =
        mergeAttachments(parser->attachments(), collected != nullptr ? *collected : ItemList());
    parser->setAttachments(merged);
    if (collected != nullptr) *collected = std::move(merged);
  }

  reportResults(row, *parser);
}

void IOSDataParser::reportMedia(const DispatchRow& row, IOSOtherAttachmentLists* lists) {
  if (lists == nullptr) return;
  std::shared_ptr<IOSDataParserDelegate> observer = observerFor(Operation::kDidFetchedData);
  ItemList* list = attachmentList(*lists, row.attachments);
  if (observer && list != nullptr) report(observer, *list, row.extraReport);
}

void IOSDataParser::reportNotes(const std::shared_ptr<IOSDataParserDelegate>& observer,
                                const IOSBaseParser& parser) {
  ItemList allNotes;
  {
    std::lock_guard lock(mutex_);
    if (!notes_) notes_.emplace();
    notes_->insert(notes_->end(), parser.items().begin(), parser.items().end());
    allNotes = *notes_;
  }
  report(observer, allNotes, IOSDataTypeNote);
  // Both note rows carry the note-attachment code.
  ItemList allAttachments;
  {
    std::lock_guard lock(mutex_);
    if (!notesAttachments_) notesAttachments_.emplace();
    notesAttachments_->insert(notesAttachments_->end(), parser.attachments().begin(),
                              parser.attachments().end());
    allAttachments = *notesAttachments_;
  }
  report(observer, allAttachments, kResultNoteAttachments);
}

void IOSDataParser::reportResults(const DispatchRow& row, const IOSBaseParser& parser) {
  std::shared_ptr<IOSDataParserDelegate> observer = observerFor(Operation::kDidFetchedData);
  if (!observer) return;

  if (row.type == IOSDataTypeNote || row.type == IOSDataTypeOtherNote) {
    reportNotes(observer, parser);
    return;
  }
  if (row.type == IOSDataTypeWeChat) {
    // Three times on purpose; observers tell the second report apart by its code.
    report(observer, parser.items(), IOSDataTypeWeChat);
    report(observer, parser.items(), kResultWeChatSecondReport);
    report(observer, parser.items(), IOSDataTypeWeChat);
  } else {
    report(observer, parser.items(), row.type);
  }

  IOSDataType extra = row.extraReport;
  if (extra & kResultPhotoVideos) report(observer, parser.photoVideos(), kResultPhotoVideos);
  if (extra & kAttachmentReportMask) {
    report(observer, parser.attachments(), extra & kAttachmentReportMask);
  }
  if (extra & kCallReportMask) report(observer, parser.callHistorys(), extra & kCallReportMask);
}

void IOSDataParser::analyzeProgress(std::string_view data) {
  if (parseStoped_.load()) return;
  std::shared_ptr<IOSDataParserDelegate> observer = observerFor(Operation::kParseProgress);
  if (!observer) return;
  std::string error;
  json::Value progress = json::parse(data, &error);
  if (!progress.present()) {
    RunLog::write("*** analyze progress failed: {}", error);
    return;
  }
  if (!progress.isObject()) return;
  double current = progress["current"].number();
  double total = progress["total"].number();
  if (total > 0) observer->parseProgress(*this, static_cast<float>(current / total));
}

void IOSDataParser::parseBegined() {
  if (auto observer = observerFor(Operation::kDataParseDidBegined)) {
    observer->dataParseDidBegined(*this);
  }
}

void IOSDataParser::parseError(int status) {
  if (parseStoped_.load()) status = 2;
  if (auto observer = observerFor(Operation::kDidParseError)) {
    observer->didParseError(*this, status);
  }
}

void IOSDataParser::parseFinished(int status) {
  constexpr std::string_view kMethod = "-[IOSDataParser parseFinished:]";
  RunLog::write("*** {}", kMethod);
  if (parseStoped_.load()) status = 2;
  std::shared_ptr<IOSDataParserDelegate> observer = delegate();
  RunLog::write("*** {} 1, {}", kMethod, describeObserver(observer));
  if (observer && observer->responds(Operation::kDidParseFinished)) {
    RunLog::write("******");
    observer->didParseFinished(*this, status);
  }
  RunLog::write("*** {} 3, {}", kMethod, describeObserver(observer));
  observer.reset();
  resetParser();
}

// ---- backup-manager observer -----------------------------------------------------------------

void IOSDataParser::backupManagerReadyBegined() {
  if (auto observer = observerFor(Operation::kBackupDidReadyBegined)) {
    observer->backupDidReadyBegined(*this);
  }
}

void IOSDataParser::backupManagerReadyCompleted() {
  if (auto observer = observerFor(Operation::kBackupDidReadyCompleted)) {
    observer->backupDidReadyCompleted(*this);
  }
}

void IOSDataParser::backupManagerBackupBegin(const std::string& path) {
  setBackupPath(path);
  if (auto observer = observerFor(Operation::kBackupBegin)) observer->backupBegin(*this, path);
}

void IOSDataParser::backupManagerBackupProgress(float progress) {
  if (auto observer = observerFor(Operation::kBackupProgress)) {
    observer->backupProgress(*this, progress);
  }
}

bool IOSDataParser::backupManagerShouldBackupFile(const std::string& /*deviceFileName*/,
                                                  const std::string& /*localFileName*/) {
  return true;  // every file is backed up
}

void IOSDataParser::backupManagerDidCompleteOneFile(const std::string& deviceFileName,
                                                    const std::string& localFileName) {
  // The part of the local name after the device's UDID, or the whole name without one.
  std::string_view relative = localFileName;
  std::shared_ptr<const BackupDevice> device = currentDevice();
  if (device && !device->UDID.empty()) {
    if (std::size_t at = relative.find(device->UDID); at != std::string_view::npos) {
      relative.remove_prefix(at + device->UDID.size());
    }
  }
  // Joining a component that starts with "/" adds no second separator.
  while (relative.starts_with('/'))
    relative.remove_prefix(1);
  parseDeviceFile(deviceFileName, path::appendingPathComponent(backupPath(), relative));
}

void IOSDataParser::backupManagerResult(bool result, const std::string& /*path*/,
                                        std::int32_t errorCode) {
  engine()->AddPackageFileFinish();
  if (auto observer = observerFor(Operation::kBackupFinished)) {
    observer->backupFinished(*this, result, errorCode);
  }
}

}  // namespace dataparser
