#include "dataparser/engine/ios_backup/contact_names.h"

#include <algorithm>

#include "dataparser/engine/ios_backup/sqlite_database.h"

namespace dataparser {
namespace {

constexpr std::size_t kTailDigits = 7;
constexpr std::int64_t kPhoneProperty = 3;
constexpr std::int64_t kEmailProperty = 4;

bool endsWith(std::string_view text, std::string_view tail) {
  return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

}  // namespace

std::string contactKey(std::string_view numberOrAddress) {
  std::string key;
  if (numberOrAddress.find('@') != std::string_view::npos) {
    key.reserve(numberOrAddress.size());
    for (char c : numberOrAddress) {
      if (c != ' ') key += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return key;
  }
  for (char c : numberOrAddress) {
    if (c >= '0' && c <= '9') key += c;
  }
  return key;
}

void ContactNames::add(std::string_view numberOrAddress, PersonName name) {
  std::string key = contactKey(numberOrAddress);
  if (key.empty() || exact_.contains(key)) return;
  const std::size_t index = names_.size();
  names_.push_back(std::move(name));
  const bool isNumber = numberOrAddress.find('@') == std::string_view::npos;
  if (isNumber && key.size() >= kTailDigits) {
    byTail_[key.substr(key.size() - kTailDigits)].push_back(numbers_.size());
    numbers_.push_back(Number{key, index});
  }
  exact_.emplace(std::move(key), index);
}

const PersonName* ContactNames::find(std::string_view numberOrAddress) const {
  const std::string key = contactKey(numberOrAddress);
  if (key.empty()) return nullptr;
  if (auto hit = exact_.find(key); hit != exact_.end()) return &names_[hit->second];
  if (numberOrAddress.find('@') != std::string_view::npos || key.size() < kTailDigits) {
    return nullptr;
  }
  auto candidates = byTail_.find(key.substr(key.size() - kTailDigits));
  if (candidates == byTail_.end()) return nullptr;
  for (std::size_t at : candidates->second) {
    const Number& number = numbers_[at];
    if (endsWith(number.digits, key) || endsWith(key, number.digits)) {
      return &names_[number.name];
    }
  }
  return nullptr;
}

ContactNames ContactNames::load(SqliteDatabase& addressBook) {
  ContactNames names;
  if (!addressBook.hasTable("ABPerson") || !addressBook.hasTable("ABMultiValue")) return names;
  // ABPerson: ROWID, First, Middle, Last. ABMultiValue: record_id (ABPerson.ROWID), property
  // (3 phone, 4 e-mail), value.
  SqliteStatement rows = addressBook.prepare(
      "SELECT " + addressBook.column("ABPerson", "p", "First") + ", " +
      addressBook.column("ABPerson", "p", "Middle") + ", " +
      addressBook.column("ABPerson", "p", "Last") +
      ", mv.value FROM ABMultiValue mv JOIN ABPerson p ON p.ROWID = mv.record_id"
      " WHERE mv.property IN (" +
      std::to_string(kPhoneProperty) + ", " + std::to_string(kEmailProperty) +
      ") ORDER BY p.ROWID, mv.ROWID");
  while (rows.step()) {
    PersonName name{std::string(rows.text(0)), std::string(rows.text(1)),
                    std::string(rows.text(2))};
    if (name.first.empty() && name.middle.empty() && name.last.empty()) continue;
    names.add(rows.text(3), std::move(name));
  }
  return names;
}

}  // namespace dataparser
