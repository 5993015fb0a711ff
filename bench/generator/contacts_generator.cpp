#include "bench/generator/contacts_generator.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace dataparser::bench {
namespace {

constexpr std::string_view kPhoneLabels[] = {"_$!<Mobile>!$_", "_$!<Home>!$_", "_$!<Work>!$_",
                                             "iPhone",         "_$!<Main>!$_", "_$!<HomeFAX>!$_",
                                             "Boat phone"};
constexpr std::string_view kPlainLabels[] = {"_$!<Home>!$_", "_$!<Work>!$_", "_$!<Other>!$_",
                                             "_$!<School>!$_", "Weekend"};

template <std::size_t N>
std::string_view pick(TextSource& source, const std::string_view (&labels)[N]) {
  return labels[static_cast<std::size_t>(source.between(0, N - 1))];
}

void entryHead(JsonWriter& w, TextSource& source, std::int64_t property, std::string_view label) {
  w.StartObject();
  writeInteger(w, "label", source.between(1, 40));
  writeInteger(w, "property", property);
  writeString(w, "label_name", label);
}

void part(JsonWriter& w, std::string_view name, std::string_view text) {
  w.StartObject();
  writeString(w, "entry_key", name);
  writeString(w, "entry", text);
  w.EndObject();
}

constexpr std::string_view kListKeys[] = {"phone_info", "email_info",       "address_info",
                                          "date_info",  "relate_name_info", "url_info",
                                          "im_info",    "social_info"};

void writeEntry(JsonWriter& w, TextSource& source, int kind) {
  switch (kind) {
    case 0:
      entryHead(w, source, 3, pick(source, kPhoneLabels));
      writeString(w, "value", source.phoneNumber());
      break;
    case 1:
      entryHead(w, source, 4, pick(source, kPlainLabels));
      writeString(w, "value", fmt::format("{}@example.org", source.name()));
      break;
    case 2:
      entryHead(w, source, 5, pick(source, kPlainLabels));
      w.Key("entry_n_key");
      w.StartArray();
      part(w, "Street", fmt::format("{} {} Road", source.between(1, 300), source.name()));
      part(w, "City", source.name());
      part(w, "ZIP", fmt::format("{:05}", source.between(1000, 99999)));
      part(w, "Country", "United States");
      part(w, "CountryCode", "us");
      w.EndArray();
      break;
    case 3:
      entryHead(w, source, 12, "_$!<Anniversary>!$_");
      writeString(w, "date",
                  fmt::format("{:02}-{:02}-{} 00:00:00", source.between(1, 12),
                              source.between(1, 28), source.between(1950, 2020)));
      break;
    case 4:
      entryHead(w, source, 23, "_$!<Sister>!$_");
      writeString(w, "value", source.name());
      break;
    case 5:
      entryHead(w, source, 22, "_$!<HomePage>!$_");
      writeString(w, "value", fmt::format("https://{}.example.org", source.name()));
      break;
    case 6:
      entryHead(w, source, 13, "_$!<Home>!$_");
      w.Key("entry_n_key");
      w.StartArray();
      part(w, "service", "Skype");
      part(w, "username", source.name());
      w.EndArray();
      break;
    default:
      entryHead(w, source, 46, "_$!<Twitter>!$_");
      w.Key("entry_n_key");
      w.StartArray();
      part(w, "service", "twitter");
      part(w, "username", source.name());
      part(w, "url", fmt::format("http://twitter.com/{}", source.name()));
      w.EndArray();
      break;
  }
  w.EndObject();
}

void writeContact(JsonWriter& w, TextSource& source, std::int64_t id) {
  w.StartObject();
  writeInteger(w, "ROWID", id);
  writeString(w, "guid", fmt::format("{:016X}", static_cast<std::uint64_t>(source.random()())));
  if (source.chance(0.95)) writeString(w, "First", source.name());
  if (source.chance(0.1)) writeString(w, "Middle", source.name());
  if (source.chance(0.85)) writeString(w, "Last", source.name());
  if (source.chance(0.1)) writeString(w, "Nickname", source.name());
  if (source.chance(0.3)) writeString(w, "Organization", source.text(30));
  if (source.chance(0.1)) writeString(w, "Note", source.text(120));
  if (source.chance(0.3)) {
    writeString(w, "Birthday",
                fmt::format("{:02}-{:02}-{} 00:00:00", source.between(1, 12), source.between(1, 28),
                            source.between(1940, 2010)));
  }
  if (source.chance(0.05)) {
    writeInteger(w, "alt_birthday_type", 2);
    writeString(w, "AlternateBirthday",
                fmt::format("0,0,0,4700,{},{}", source.between(1, 12), source.between(1, 30)));
  }
  if (source.chance(0.01)) writeString(w, "tag", "deleted");
  // 3 to 10 entries; phones and e-mails are the most common kinds.
  std::vector<int> kinds;
  std::int64_t count = source.between(3, 10);
  for (std::int64_t i = 0; i < count; ++i) {
    std::int64_t roll = source.between(0, 99);
    kinds.push_back(roll < 40 ? 0 : roll < 65 ? 1 : roll < 75 ? 2 : 3 + static_cast<int>(roll % 5));
  }
  for (int kind = 0; kind < 8; ++kind) {
    bool any = false;
    for (int k : kinds)
      any = any || k == kind;
    if (!any) continue;
    w.Key(kListKeys[kind].data(), static_cast<rapidjson::SizeType>(kListKeys[kind].size()));
    w.StartArray();
    for (int k : kinds) {
      if (k == kind) writeEntry(w, source, kind);
    }
    w.EndArray();
  }
  w.EndObject();
}

}  // namespace

GeneratedCounts generateContacts(RecordingWriter& recording, const ContactsOptions& options) {
  TextSource source(options.seed);
  GeneratedCounts counts;
  std::vector<std::string> files;
  for (std::int64_t written = 0; written < options.contacts;) {
    std::string relative = fmt::format("files/contacts/contacts-{:04}.json", files.size() + 1);
    files.push_back(RecordingWriter::rootPath(relative));
    JsonFile file(recording.file(relative));
    file.writer().StartObject();
    file.writer().Key("contacts_info");
    file.writer().StartArray();
    for (std::int64_t i = 0; i < options.contactsPerFile && written < options.contacts; ++i) {
      writeContact(file.writer(), source, ++written);
    }
    file.writer().EndArray();
    file.writer().EndObject();
    file.close();
  }
  counts.records = options.contacts;
  counts.files = static_cast<std::int64_t>(files.size());
  std::string block = "{\"contact_file_path\": [";
  for (std::size_t i = 0; i < files.size(); ++i)
    block += (i ? ", \"" : "\"") + files[i] + "\"";
  recording.block(55, block + "]}");
  return counts;
}

}  // namespace dataparser::bench
