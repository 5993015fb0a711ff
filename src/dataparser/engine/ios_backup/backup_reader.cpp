#include "dataparser/engine/ios_backup/backup_reader.h"

#include <array>
#include <cmath>

#include "dataparser/util/date.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

constexpr CallbackTypeExtend kContactsBlock = 55;
constexpr CallbackTypeExtend kMessagesBlock = 56;
constexpr CallbackTypeExtend kCallHistoryBlock = 51;

// Contacts first: their file holds every name, and the other readers use the same address book.
constexpr std::array kReaders = {
    BackupReader{"contacts", kHomeDomain, kAddressBookPath, kContactsBlock, &readContacts},
    BackupReader{"sms", kHomeDomain, "Library/SMS/sms.db", kMessagesBlock, &readMessages},
    BackupReader{"call history", kHomeDomain, "Library/CallHistoryDB/CallHistory.storedata",
                 kCallHistoryBlock, &readCallHistory},
};

// Dates above this are nanoseconds: a count of seconds this large would lie thousands of years
// ahead.
constexpr double kNanosecondThreshold = 1e11;

}  // namespace

std::span<const BackupReader> backupReaders() {
  return kReaders;
}

std::string backupDateText(double value) {
  if (value == 0 || !std::isfinite(value)) return {};
  if (std::fabs(value) > kNanosecondThreshold) value /= 1e9;
  OptionalDate date = dateWithSecondsSince2001(value);
  if (!date) return {};
  return printDate(*date, kDefaultDateFormat, DateZone::utc());
}

const ContactNames& BackupScanContext::names() {
  if (names_) return *names_;
  names_.emplace();
  const std::string path = backup_.filePath(kHomeDomain, kAddressBookPath);
  if (path.empty()) return *names_;
  std::string error;
  if (std::unique_ptr<SqliteDatabase> db = SqliteDatabase::openReadOnly(path, &error)) {
    *names_ = ContactNames::load(*db);
  } else {
    RunLog::write("*** iOS backup: no names from AddressBook.sqlitedb: {}", error);
  }
  return *names_;
}

}  // namespace dataparser
