// The address book, HomeDomain "Library/AddressBook/AddressBook.sqlitedb", as public
// descriptions of it give it:
//   ABPerson(ROWID, guid, First, Middle, Last, Prefix, Suffix, Nickname, FirstPhonetic,
//            MiddlePhonetic, LastPhonetic, Organization, Department, JobTitle, Note,
//            Birthday (seconds since 2001, as text))
//   ABMultiValue(UID, record_id -> ABPerson.ROWID, property, label -> ABMultiValueLabel.ROWID,
//                value)
//   ABMultiValueLabel(ROWID, value "_$!<Mobile>!$_" or the user's own label)
//   ABMultiValueEntry(parent_id -> ABMultiValue.UID, key -> ABMultiValueEntryKey.ROWID, value)
//   ABMultiValueEntryKey(ROWID, value "Street", "City", "service", "username", ...)
// and its pictures, "AddressBookImages.sqlitedb":
//   ABFullSizeImage(record_id, data), ABThumbnailImage(record_id, format, data)
// Property codes: 3 phone, 4 e-mail, 5 address, 12 date, 13 instant messaging, 22 web address,
// 23 related name, 46 social profile.
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "dataparser/engine/ios_backup/backup_reader.h"
#include "dataparser/engine/ios_backup/json_block_writer.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

struct MultiValue {
  std::int64_t uid = 0;
  std::int64_t property = 0;
  std::int64_t label = 0;
  std::string labelName;
  std::string value;
  std::vector<std::pair<std::string, std::string>> entries;  // (key, value)
};

// Which list of a contact record a property goes to, and how its value is written.
struct PropertyList {
  std::int64_t property;
  std::string_view key;
  enum class Value { kText, kDate, kEntries } value;
};
constexpr PropertyList kPropertyLists[] = {
    {3, "phone_info", PropertyList::Value::kText},
    {4, "email_info", PropertyList::Value::kText},
    {5, "address_info", PropertyList::Value::kEntries},
    {12, "date_info", PropertyList::Value::kDate},
    {13, "im_info", PropertyList::Value::kEntries},
    {22, "url_info", PropertyList::Value::kText},
    {23, "relate_name_info", PropertyList::Value::kText},
    {46, "social_info", PropertyList::Value::kEntries},
};

// Person columns written under the same names.
constexpr std::string_view kPersonTexts[] = {
    "guid",         "First",      "Middle",        "Last",           "Prefix",
    "Suffix",       "Nickname",   "FirstPhonetic", "MiddlePhonetic", "LastPhonetic",
    "Organization", "Department", "JobTitle",      "Note",           "PreviousFamilyName",
};

std::unordered_map<std::int64_t, std::vector<MultiValue>> loadMultiValues(SqliteDatabase& db) {
  std::unordered_map<std::int64_t, std::vector<MultiValue>> byPerson;
  if (!db.hasTable("ABMultiValue")) return byPerson;
  const bool labels = db.hasTable("ABMultiValueLabel");
  SqliteStatement rows = db.prepare(
      "SELECT mv.ROWID, mv.record_id, " + db.column("ABMultiValue", "mv", "property") + ", " +
      db.column("ABMultiValue", "mv", "label") + ", " + (labels ? "l.value" : std::string("NULL")) +
      ", " + db.column("ABMultiValue", "mv", "value") + " FROM ABMultiValue mv" +
      (labels ? " LEFT JOIN ABMultiValueLabel l ON l.ROWID = mv.label" : "") +
      " ORDER BY mv.record_id, mv.ROWID");
  std::unordered_map<std::int64_t, std::pair<std::int64_t, std::size_t>> byUID;
  while (rows.step()) {
    std::vector<MultiValue>& values = byPerson[rows.integer(1)];
    byUID[rows.integer(0)] = {rows.integer(1), values.size()};
    values.push_back(MultiValue{rows.integer(0),
                                rows.integer(2),
                                rows.integer(3),
                                std::string(rows.text(4)),
                                std::string(rows.text(5)),
                                {}});
  }
  if (!db.hasTable("ABMultiValueEntry") || !db.hasTable("ABMultiValueEntryKey")) return byPerson;
  SqliteStatement entries = db.prepare(
      "SELECT e.parent_id, k.value, e.value FROM ABMultiValueEntry e JOIN ABMultiValueEntryKey "
      "k ON k.ROWID = e.key ORDER BY e.parent_id, e.ROWID");
  while (entries.step()) {
    auto owner = byUID.find(entries.integer(0));
    if (owner == byUID.end()) continue;
    byPerson[owner->second.first][owner->second.second].entries.emplace_back(
        std::string(entries.text(1)), std::string(entries.text(2)));
  }
  return byPerson;
}

// Writes each contact's pictures from AddressBookImages.sqlitedb below `folder`; the paths by
// person, (full size, thumbnail).
std::unordered_map<std::int64_t, std::pair<std::string, std::string>> writePictures(
    BackupScanContext& context, const std::string& folder) {
  std::unordered_map<std::int64_t, std::pair<std::string, std::string>> pictures;
  const std::string path = context.backup().filePath(kHomeDomain, kAddressBookImagesPath);
  if (path.empty()) return pictures;
  std::string error;
  std::unique_ptr<SqliteDatabase> db = SqliteDatabase::openReadOnly(path, &error);
  if (!db) {
    RunLog::write("*** iOS backup: skipped AddressBookImages.sqlitedb: {}", error);
    return pictures;
  }
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  struct Source {
    std::string_view table;
    std::string_view suffix;
    bool thumbnail;
  };
  for (Source source :
       {Source{"ABFullSizeImage", "full", false}, Source{"ABThumbnailImage", "thumb", true}}) {
    if (!db->hasTable(source.table)) continue;
    const std::string order =
        db->column(source.table, "i", "format") != "NULL" ? "i.record_id, i.format" : "i.record_id";
    SqliteStatement rows = db->prepare("SELECT i.record_id, i.data FROM " +
                                       std::string(source.table) + " i ORDER BY " + order);
    while (rows.step()) {
      const std::int64_t person = rows.integer(0);
      std::string& target = source.thumbnail ? pictures[person].second : pictures[person].first;
      std::string_view data = rows.text(1);
      if (!target.empty() || data.empty()) continue;
      std::string file =
          folder + "/" + std::to_string(person) + "-" + std::string(source.suffix) + ".jpg";
      if (std::FILE* out = std::fopen(file.c_str(), "wb")) {
        const bool written = std::fwrite(data.data(), 1, data.size(), out) == data.size();
        if (std::fclose(out) == 0 && written) target = std::move(file);
      }
    }
  }
  return pictures;
}

void writeMultiValue(JsonBlockWriter& w, const MultiValue& value, PropertyList::Value kind) {
  w.startObject();
  w.field("label", value.label);
  w.field("property", value.property);
  w.field("label_name", value.labelName);
  switch (kind) {
    case PropertyList::Value::kText:
      w.field("value", value.value);
      break;
    case PropertyList::Value::kDate: {
      // A date entry holds seconds since 2001.
      char* end = nullptr;
      const double seconds = std::strtod(value.value.c_str(), &end);
      w.field("date", end != value.value.c_str() ? backupDateText(seconds) : std::string());
      w.field("value", value.value);
      break;
    }
    case PropertyList::Value::kEntries:
      w.key("entry_n_key");
      w.startArray();
      for (const auto& [key, text] : value.entries) {
        w.startObject();
        w.field("entry_key", key);
        w.field("entry", text);
        w.endObject();
      }
      w.endArray();
      break;
  }
  w.endObject();
}

}  // namespace

std::optional<std::string> readContacts(SqliteDatabase& db, BackupScanContext& context) {
  if (!db.hasTable("ABPerson")) {
    RunLog::write("*** iOS backup: AddressBook.sqlitedb has no ABPerson table");
    return std::nullopt;
  }
  const std::string folder = context.outputFolder() + "/contacts";
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  auto multiValues = loadMultiValues(db);
  auto pictures = writePictures(context, folder + "/pictures");

  std::string columns = "SELECT p.ROWID, " + db.column("ABPerson", "p", "Birthday");
  for (std::string_view name : kPersonTexts)
    columns += ", " + db.column("ABPerson", "p", name);
  SqliteStatement rows = db.prepare(columns + " FROM ABPerson p ORDER BY p.ROWID");
  const std::string path = folder + "/contacts-1.json";
  JsonBlockWriter w(path);
  if (!w.ok() || !rows.valid()) {
    RunLog::write("*** iOS backup: cannot write {}", path);
    return std::nullopt;
  }
  w.startObject();
  w.key("contacts_info");
  w.startArray();
  std::size_t count = 0;
  while (rows.step()) {
    if (context.stopRequested()) return std::nullopt;
    const std::int64_t person = rows.integer(0);
    w.startObject();
    w.field("ROWID", person);
    if (!rows.isNull(1)) w.field("Birthday", backupDateText(rows.real(1)));
    for (std::size_t i = 0; i < std::size(kPersonTexts); ++i) {
      const int column = static_cast<int>(i) + 2;
      if (!rows.isNull(column)) w.field(kPersonTexts[i], rows.text(column));
    }
    if (auto picture = pictures.find(person); picture != pictures.end()) {
      if (!picture->second.first.empty()) w.field("image_path", picture->second.first);
      if (!picture->second.second.empty()) w.field("thumb_path", picture->second.second);
    }
    if (auto values = multiValues.find(person); values != multiValues.end()) {
      for (const PropertyList& list : kPropertyLists) {
        bool started = false;
        for (const MultiValue& value : values->second) {
          if (value.property != list.property) continue;
          if (!started) {
            w.key(list.key);
            w.startArray();
            started = true;
          }
          writeMultiValue(w, value, list.value);
        }
        if (started) w.endArray();
      }
    }
    w.endObject();
    ++count;
  }
  w.endArray();
  w.endObject();
  if (!w.close()) return std::nullopt;
  RunLog::write("*** iOS backup: {} contacts", count);
  JsonBlockWriter block;
  block.startObject();
  block.key("contact_file_path");
  block.startArray();
  block.string(path);
  block.endArray();
  block.endObject();
  return block.text();
}

}  // namespace dataparser
