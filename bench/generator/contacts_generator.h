// The contacts generator: N contacts with 3 to 10 labelled entries each (phones, e-mails,
// addresses, dates, related names, web addresses, IM accounts, social profiles), written as the
// engine's contacts export (one callback 55 naming contact files of "contacts_info").
//
// Realistic shape: most contacts have first and last names, some a nickname, organisation and
// birthday, one in twenty a lunar alternate birthday; labels are mostly standard ("_$!<Mobile>!$_")
// with some typed by the user. Deterministic from the seed.
#pragma once

#include <cstdint>

#include "bench/generator/recording_writer.h"
#include "bench/generator/sms_generator.h"

namespace dataparser::bench {

struct ContactsOptions {
  std::int64_t contacts = 1000;
  std::uint64_t seed = 1;
  // Contacts per contact file.
  std::int64_t contactsPerFile = 20000;
};

GeneratedCounts generateContacts(RecordingWriter& recording, const ContactsOptions& options);

}  // namespace dataparser::bench
