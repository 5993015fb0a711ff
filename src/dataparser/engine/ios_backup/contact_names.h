// ContactNames: the address book's names looked up by phone number or e-mail address, so that
// message members and callers carry the names the phone shows.
//
// Numbers are compared by their digits alone ("+1 (555) 010-1" and "15550101" are the same);
// when no entry has exactly the same digits, a number matches an entry whose digits end with it
// or that it ends with, as long as the shorter has at least seven digits (a number stored
// without its country code). E-mail addresses are compared without regard to case.
//
// Thread safety: immutable once built.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace dataparser {

class SqliteDatabase;

struct PersonName {
  std::string first;
  std::string middle;
  std::string last;
};

class ContactNames {
 public:
  // Reads ABPerson (ROWID, First, Middle, Last) and ABMultiValue (record_id, property 3 phone
  // and 4 e-mail, value) of an address book; empty when the tables are missing.
  static ContactNames load(SqliteDatabase& addressBook);

  void add(std::string_view numberOrAddress, PersonName name);
  // The name for a number or address; nullptr when no entry matches.
  const PersonName* find(std::string_view numberOrAddress) const;
  bool empty() const { return names_.empty(); }

 private:
  std::vector<PersonName> names_;
  std::unordered_map<std::string, std::size_t> exact_;  // digits or lower-cased address
  struct Number {
    std::string digits;
    std::size_t name;
  };
  std::vector<Number> numbers_;
  std::unordered_map<std::string, std::vector<std::size_t>> byTail_;  // last seven digits
};

// The digits of a phone number, or the lower-cased text of an address with "@".
std::string contactKey(std::string_view numberOrAddress);

}  // namespace dataparser
