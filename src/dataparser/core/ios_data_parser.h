// IOSDataParser: the one coordinator through which a host drives a scan.
//
// The host takes `shared()`, sets its observer (held weakly), `selectedDataType`,
// `parseDeleted` and `deviceBackup`, and calls a start operation. The coordinator prepares the
// package engine, names the input and lets the engine run; the engine calls `CallbackFuction`
// on its own thread, and the bridge hands each block to `analyzeData`, `analyzeProgress`,
// `parseBegined`, `parseFinished` or `parseError` here. Every parse and every observer report
// happens synchronously on the engine's thread.
//
// Collaborators: the package engine (default: a ReplayEngine), the backup manager (default: a
// folder-copy manager) and the dispatch table (default: DispatchTable::standard()) can be
// replaced at any time between scans, so one process may run many scans (tests do).
//
// Ownership: the instance lives for the whole process and is never destroyed. It shares the
// engine and the backup manager; it holds the observer weakly.
// Thread safety: every public operation may be called from any thread. `analyzeData` is
// serialised by `semaphore`; `stopParse` and `stopBackup` only raise flags and ask the engine or
// manager to stop, so they are safe while a scan runs.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>

#include "dataparser/core/android_package_engine.h"
#include "dataparser/core/backup_manager.h"
#include "dataparser/core/data_type.h"
#include "dataparser/core/delegate.h"
#include "dataparser/core/dispatch.h"
#include "dataparser/core/package_engine.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/util/json.h"

namespace dataparser {

class IOSDataParser final : public BackupManagerObserver {
 public:
  static IOSDataParser& shared();

  IOSDataParser(const IOSDataParser&) = delete;
  IOSDataParser& operator=(const IOSDataParser&) = delete;

  // Collaborators. nullptr brings back the default.
  void setPackageEngine(std::shared_ptr<PackageEngine> engine);
  std::shared_ptr<PackageEngine> packageEngine() const;
  void setAndroidPackageEngine(std::shared_ptr<AndroidPackageEngine> engine);
  std::shared_ptr<AndroidPackageEngine> androidPackageEngine() const;
  void setBackupManager(std::shared_ptr<BackupManager> manager);
  std::shared_ptr<BackupManager> backupManager() const;
  void setDispatchTable(DispatchTable table);
  DispatchTable dispatchTable() const;

  // Fields.
  std::shared_ptr<IOSDataParserDelegate> delegate() const;
  void setDelegate(std::weak_ptr<IOSDataParserDelegate> delegate);
  bool parseDeleted() const { return parseDeleted_.load(); }
  void setParseDeleted(bool value) { parseDeleted_.store(value); }
  IOSDataType selectedDataType() const { return selectedDataType_.load(); }
  void setSelectedDataType(IOSDataType value) { selectedDataType_.store(value); }
  bool deviceBackup() const { return deviceBackup_.load(); }
  void setDeviceBackup(bool value) { deviceBackup_.store(value); }
  std::string backupPath() const;
  void setBackupPath(std::string path);
  std::shared_ptr<const BackupDevice> currentDevice() const;
  void setCurrentDevice(std::shared_ptr<const BackupDevice> device);
  bool parseStoped() const { return parseStoped_.load(); }
  bool backupStoped() const { return backupStoped_.load(); }
  std::binary_semaphore& semaphore() { return semaphore_; }
  std::counting_semaphore<>& photoSignal() { return photoSignal_; }
  // Notes and note attachments of this scan so far (empty when none).
  ItemList notes() const;
  ItemList notesAttachments() const;

  // The long-lived parsers of the running scan; nullptr outside a scan or while their class is
  // not registered in the dispatch table.
  ParserPtr parserInSlot(ParserSlot slot) const;
  ParserPtr appPhotoParser() const { return parserInSlot(ParserSlot::kAppPhoto); }
  ParserPtr appVideoParser() const { return parserInSlot(ParserSlot::kAppVideo); }
  ParserPtr appAudioParser() const { return parserInSlot(ParserSlot::kAppAudio); }
  ParserPtr appDocumentParser() const { return parserInSlot(ParserSlot::kAppDocument); }
  ParserPtr kikThumbParser() const { return parserInSlot(ParserSlot::kKikThumb); }
  ParserPtr otherAttachmentParser() const { return parserInSlot(ParserSlot::kOtherAttachment); }
  ParserPtr weChatParser() const { return parserInSlot(ParserSlot::kWeChat); }
  ParserPtr lineParser() const { return parserInSlot(ParserSlot::kLine); }
  ParserPtr kikParser() const { return parserInSlot(ParserSlot::kKik); }
  ParserPtr voiceMemoParser() const { return parserInSlot(ParserSlot::kVoiceMemo); }
  ParserPtr reminderParser() const { return parserInSlot(ParserSlot::kReminder); }

  // The iCloud parsers that `stopParse` stops when they exist.
  enum class ICloudParser : std::uint8_t { kPhoto, kContact, kCalendar, kNote, kReminder };
  ParserPtr icloudParser(ICloudParser which) const;
  void setICloudParser(ICloudParser which, ParserPtr parser);

  // Preparation.
  void setupInterface();
  void setupParser();
  void resetParser();

  // Start operations.
  void startParseWithBackupPath(const std::string& path);
  void startParseCFSDataWithBackupPath(const std::string& path);
  void startParseAppWithBackupPath(const std::string& path);
  void startParseFullBackupWithPath(const std::string& path);
  void startParsePhotoWithBackupPath(const std::string& path);
  void startParseVoiceMemoWithBackupPath(const std::string& path);
  void startParseDeviceBackup();
  void startBackupAndParse(std::shared_ptr<const BackupDevice> device,
                           const std::string& withBackupPath, std::int64_t backupCategory,
                           bool isMove);
  void parseDeviceFile(const std::string& deviceFileName, const std::string& localPath);

  // The Android path: WhatsApp and WhatsApp Business of an Android backup whose message database
  // is at `path`, through the Android engine and AndroidCallbackFuction (android_path.h). The
  // path also becomes `backupPath`, which locates the backup's attachments folder.
  void startParseWithAndroidBackupPath(const std::string& path);
  // Clears working root + "AndroidParse", prepares the Android engine and sends it the
  // parameter object; the engine starts at once.
  void setupAndroidInterface(const std::string& path);
  // The engine's parameter object for `path` and the current selection, pretty-printed.
  std::string androidParameterText(const std::string& path) const;
  void parseDeviceFileFinished();

  // Pretty-printed JSON text of `object`, trimmed at both ends; "" (and "Got an error: ...")
  // when it cannot be written.
  static std::string encodeToJosnString(const json::View& object);

  // --- iCloud: a downloaded account folder, streamed JSON texts and the download runs ---
  // Implemented by the icloud layer. The five iCloud parsers live from setupiCloudParser to
  // releaseiCloudParser and accumulate what they are fed. Every query blocks its caller.
  void setupiCloudParser();
  void releaseiCloudParser();
  // Runs the five queries when {path}/BackupInfo.plist exists; otherwise logs
  // "backup not exist:{index path}" and does nothing else.
  void startParseiCloudBackupWithPath(const std::string& path);
  // {path}/BackupInfo.plist (XML or binary) as a JSON object; absent when the file is missing,
  // unreadable, not a property list, or not a non-empty dictionary.
  json::Value icloudBackupInfoDictWithPath(const std::string& path) const;
  void queryContactWithPath(const std::string& path);
  void queryCalendarWithPath(const std::string& path);
  void queryNoteWithPath(const std::string& path);
  void queryReminderWithPath(const std::string& path);
  void queryLowReminderWithPath(const std::string& path);
  void queryHeightReminderWithPath(const std::string& path);
  void queryPhotoAndPhototVideoWithPath(const std::string& path);

  // Streamed texts handed in one by one by the host.
  ItemList startParseiCloudAlbumsWithJSON(JSONData data);
  void startParseiCloudAlbumPhototsForAlbum(const ItemPtr& album, JSONData withJSON);
  void startParseiCloudContactWithJSON(JSONData data, const std::string& withSavePath);
  ItemList needDownloadIconContacts() const;
  void contactFetchedData();
  void startParseiCloudCalendarWithJSON(JSONData data);
  std::optional<ItemList> startParseiCloudNoteWithJSON(JSONData data);
  void startParseiCloudNoteAttachmentsForItem(const ItemPtr& note, JSONData data);
  void startParseiCloudNoteMediasForItem(const ItemPtr& note, JSONData data);
  void startMatchingAttachments();
  void startParseLowVersioniCloudReminderListWithJSON(JSONData data);
  ItemList startParseiCloudReminderListWithJSON(JSONData data);
  std::optional<ItemList> startParseiCloudRemindersInfoWithJSON(JSONData data,
                                                                const ItemList& andListArr);
  void startParseiCloudReminderAttachmentsInfoForItem(const ItemPtr& reminder, JSONData WithJSON);
  void startParseiCloudReminderAlarmsInfoForItem(const ItemPtr& reminder, JSONData WithJSON);
  ItemList icloudNoteShowArr() const;
  // Appends a note whose files have arrived to icloudNoteShowArr.
  void addIcloudNoteShowItem(ItemPtr note);
  ItemList icloudReminderShowArr() const;
  std::string icloudDownloadPath() const;
  void setIcloudDownloadPath(std::string path);

  void stopParse();
  void stopBackup();

  // Called by the callback bridge on the engine's thread.
  void analyzeData(JSONData data, IOSDataType type);
  void analyzeProgress(std::string_view data);
  // The Android counterpart of analyzeData, under the same semaphore and stop flag.
  void analyzeAndroidData(JSONData data, IOSDataType type);
  void parseBegined();
  void parseFinished(int status);
  void parseError(int status);

  // Backup-manager observer.
  void backupManagerReadyBegined() override;
  void backupManagerReadyCompleted() override;
  void backupManagerBackupBegin(const std::string& path) override;
  void backupManagerBackupProgress(float progress) override;
  bool backupManagerShouldBackupFile(const std::string& deviceFileName,
                                     const std::string& localFileName) override;
  void backupManagerDidCompleteOneFile(const std::string& deviceFileName,
                                       const std::string& localFileName) override;
  void backupManagerResult(bool result, const std::string& path, std::int32_t errorCode) override;

 private:
  IOSDataParser();
  ~IOSDataParser() override = default;

  std::shared_ptr<PackageEngine> engine() const;
  // The observer when it exists and implements `operation`.
  std::shared_ptr<IOSDataParserDelegate> observerFor(IOSDataParserDelegate::Operation op) const;
  // Hands a copy of `list` to the observer under `type`; nothing when the list is empty.
  void report(const std::shared_ptr<IOSDataParserDelegate>& observer, const ItemList& list,
              IOSDataType type);
  // The dispatch steps of analyzeData, run while holding `semaphore`.
  void dispatch(JSONData data, IOSDataType type);
  void reportMedia(const DispatchRow& row, IOSOtherAttachmentLists* lists);
  void reportNotes(const std::shared_ptr<IOSDataParserDelegate>& observer,
                   const IOSBaseParser& parser);
  void reportResults(const DispatchRow& row, const IOSBaseParser& parser);

  mutable std::mutex mutex_;  // guards the fields below that are not atomic
  std::shared_ptr<PackageEngine> engine_;
  std::shared_ptr<AndroidPackageEngine> androidEngine_;
  std::shared_ptr<BackupManager> backupManager_;
  DispatchTable table_;
  std::weak_ptr<IOSDataParserDelegate> delegate_;
  std::string backupPath_;
  std::shared_ptr<const BackupDevice> currentDevice_;
  std::optional<ItemList> notes_;
  std::optional<ItemList> notesAttachments_;
  std::array<ParserPtr, kParserSlotCount> parsers_;
  std::array<ParserPtr, 5> icloudParsers_;
  ItemList icloudNoteShowArr_;
  ItemList icloudReminderShowArr_;
  std::string icloudDownloadPath_;

  std::atomic<bool> parseDeleted_ = false;
  std::atomic<IOSDataType> selectedDataType_ = 0;
  std::atomic<bool> deviceBackup_ = false;
  std::atomic<bool> parseStoped_ = false;
  std::atomic<bool> backupStoped_ = false;
  std::binary_semaphore semaphore_{1};
  std::counting_semaphore<> photoSignal_{0};
};

}  // namespace dataparser
