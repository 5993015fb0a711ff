#include "dataparser/parsers/personal/contacts.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/image.h"
#include "dataparser/util/json_files.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

// The text between the label markers: "_$!<Mobile>!$_" shows as "Mobile".
constexpr std::string_view kLabelPattern = "(?<=_\\$!<).*(?=>!\\$_)";

// A number written with "%ld"; "0" when the value is missing or not a number.
std::string numberText(json::View value) {
  return std::to_string(value.integer());
}

// True for a regular file that can be opened for reading: pictures are read only from such files.
bool isReadableFile(const std::string& path) {
  return isBackupFile(path) && ::access(path.c_str(), R_OK) == 0;
}

ContactImagePtr loadImage(ContactImagePtr& cache, const std::string& path) {
  if (!cache && isReadableFile(path)) cache = Image::imageWithContentsOfFile(path);
  return cache;
}

// Spaces removed, ASCII letters lower-cased.
std::string normalisedLabel(std::string_view label) {
  std::string out;
  out.reserve(label.size());
  for (char c : label) {
    if (c == ' ') continue;
    out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
  }
  return out;
}

// The named parts of "entry_n_key": a list of {"entry_key": name, "entry": text}. Elements that
// are not objects or whose two values are not both text are skipped; a later part of the same
// name replaces an earlier one. `take(name, text)` decides which names it knows.
template <class Take>
void readEntryParts(json::View record, Take&& take) {
  for (json::View element : record["entry_n_key"].elements()) {
    auto [name, text] = element.fields({"entry_key", "entry"});
    if (!name.isString() || !text.isString()) continue;
    take(name.string(), text.string());
  }
}

}  // namespace

// --- ContactSubItemInfo ---

const std::string& ContactSubItemInfo::label() const {
  return texts_.get(kLabel, [&] { return numberText(rawData()["label"]); });
}

const std::string& ContactSubItemInfo::prop() const {
  return texts_.get(kProp, [&] { return numberText(rawData()["property"]); });
}

const std::string& ContactSubItemInfo::orgLabel() const {
  return texts_.get(kOrgLabel, [&] { return rawData()["label_name"].stringCopy(); });
}

std::string ContactSubItemInfo::computeTitle() const {
  std::string_view name = rawData()["label_name"].string();
  if (name.empty()) return label();
  return matchWithPattern(name, kLabelPattern).value_or("");
}

const std::vector<std::string_view>& ContactSubItemInfo::standardLabels(std::int64_t type) {
  static const std::vector<std::string_view> kLists[] = {
      {"_$!<Mobile>!$_", "_$!<Home>!$_", "_$!<Work>!$_", "_$!<School>!$_", "iPhone", "_$!<Main>!$_",
       "_$!<HomeFAX>!$_", "_$!<WorkFAX>!$_", "_$!<Pager>!$_", "_$!<Other>!$_", "Apple Watch"},
      {"_$!<Home>!$_", "_$!<Work>!$_", "_$!<School>!$_", "_$!<Other>!$_", "iCloud"},
      {"_$!<Other>!$_", "_$!<Anniversary>!$_"},
      {"_$!<Home>!$_", "_$!<Work>!$_", "_$!<School>!$_", "_$!<Other>!$_", "_$!<HomePage>!$_"},
      {"_$!<Home>!$_", "_$!<Work>!$_", "_$!<School>!$_", "_$!<Other>!$_"},
      {"_$!<Parent>!$_",      "_$!<Brother>!$_",        "_$!<Sister>!$_",
       "_$!<Child>!$_",       "_$!<Spouse>!$_",         "_$!<Assistant>!$_",
       "_$!<Father>!$_",      "_$!<Mother>!$_",         "_$!<ElderBrother>!$_",
       "_$!<ElderSister>!$_", "_$!<YoungerBrother>!$_", "_$!<YoungerSister>!$_",
       "_$!<Husband>!$_",     "_$!<Wife>!$_",           "_$!<Partner>!$_",
       "_$!<Son>!$_",         "_$!<Daughter>!$_",       "_$!<Friend>!$_",
       "_$!<Manager>!$_",     "_$!<Colleague>!$_",      "_$!<Other>!$_"},
      {"QQ", "Skype", "MSN", "GoogleTalk", "Facebook", "AIM", "Yahoo", "ICQ", "Jabber", "GaduGadu"},
      {"sinaweibo", "twitter", "facebook", "flickr", "linkedin", "myspace"},
  };
  static const std::vector<std::string_view> kNone;
  if (type < 0 || type >= static_cast<std::int64_t>(std::size(kLists))) return kNone;
  return kLists[type];
}

std::string ContactSubItemInfo::typeFromLabel(std::string_view label,
                                              const std::vector<std::string_view>& candidates) {
  if (label.empty()) return {};
  const std::string wanted = normalisedLabel(label);
  // Containment, not equality: "work" finds "_$!<Work>!$_" before "_$!<WorkFAX>!$_".
  for (std::string_view candidate : candidates) {
    if (normalisedLabel(candidate).find(wanted) != std::string::npos) {
      return std::string(candidate);
    }
  }
  return std::string(label);
}

std::string ContactSubItemInfo::standTypeWithLabel(std::string_view label, std::int64_t type) {
  return typeFromLabel(label, standardLabels(type));
}

void ContactSubItemInfo::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("label", label());
  visitor.field("prop", prop());
  visitor.field("orgLabel", orgLabel());
}

// --- ContactGeneralInfo ---

const std::string& ContactGeneralInfo::title() const {
  return texts_.get(kTitle, [&] { return computeTitle(); });
}

const std::string& ContactGeneralInfo::display() const {
  return texts_.get(kDisplay, [&] { return rawData()["display"].stringCopy(); });
}

const std::string& ContactGeneralInfo::date() const {
  return texts_.get(kDate, [&] { return rawData()["date"].stringCopy(); });
}

const std::string& ContactGeneralInfo::displayDate() const {
  return texts_.get(kDisplayDate, [&] { return formattedDateForContact(date()); });
}

const std::string& ContactGeneralInfo::valueField(std::uint8_t field) const {
  return texts_.get(field, [&] { return rawData()["value"].stringCopy(); });
}

void ContactGeneralInfo::describe(FieldVisitor& visitor) const {
  ContactSubItemInfo::describe(visitor);
  visitor.field("title", title());
  visitor.field("display", display());
  visitor.field("date", date());
  visitor.field("displayDate", displayDate());
  visitor.field("phoneNumber", phoneNumber());
  visitor.field("email", email());
  visitor.field("relateName", relateName());
  visitor.field("url", url());
}

// --- IOSContactIMInfo and ContactSocialInfo ---

void IOSContactIMInfo::initWithDictionary(const json::Value& record) {
  ContactSubItemInfo::initWithDictionary(record);
  readEntryParts(record.view(), [&](std::string_view name, std::string_view text) {
    if (name == "service") setService(URLDecodedString(text));
    if (name == "username") setUsername(URLDecodedString(text));
  });
}

const std::string& IOSContactIMInfo::title() const {
  return texts_.get(kTitle, [&] { return computeTitle(); });
}

void IOSContactIMInfo::describe(FieldVisitor& visitor) const {
  ContactSubItemInfo::describe(visitor);
  visitor.field("title", title());
  visitor.field("service", service());
  visitor.field("username", username());
}

void ContactSocialInfo::initWithDictionary(const json::Value& record) {
  IOSContactIMInfo::initWithDictionary(record);
  readEntryParts(record.view(), [&](std::string_view name, std::string_view text) {
    if (name == "url") setUrl(std::string(text));
    if (name == "bundleIdentifiers") setBundleIdentifier(std::string(text));
  });
  setTitle(computeTitle());
}

void ContactSocialInfo::describe(FieldVisitor& visitor) const {
  IOSContactIMInfo::describe(visitor);
  visitor.field("url", url());
  visitor.field("bundleIdentifier", bundleIdentifier());
}

// --- IOSContactAddressInfo ---

void IOSContactAddressInfo::initWithDictionary(const json::Value& record) {
  ContactSubItemInfo::initWithDictionary(record);
  // An address kept as one string is its street, as it stands.
  if (json::View whole = record["address_info"]; whole.isString()) {
    setStreet(whole.stringCopy());
    return;
  }
  readEntryParts(record.view(), [&](std::string_view name, std::string_view text) {
    if (name == "Country") {
      setCountry(std::string(text));
    } else if (name == "CountryCode") {
      setCountryCode(std::string(text));
    } else if (name == "State") {
      setState(std::string(text));
    } else if (name == "City") {
      setCity(std::string(text));
    } else if (name == "SubLocality") {
      setSubLocality(std::string(text));
    } else if (name == "Street") {
      setStreet(stringByReplacingOccurrences(text, " ", "\n"));
    } else if (name == "ZIP") {
      setZip(std::string(text));
    }
  });
}

const std::string& IOSContactAddressInfo::title() const {
  return texts_.get(kTitle, [&] {
    std::string title = computeTitle();
    return title.empty() ? std::string("Other Address") : title;
  });
}

const std::string& IOSContactAddressInfo::address() const {
  return texts_.get(kAddress, [&] { return rawData()["address"].stringCopy(); });
}

std::string IOSContactAddressInfo::fullAddress() const {
  std::string full;
  // From the country down to the city, in this order.
  for (const std::string* part :
       {&country(), &zip(), &street(), &subLocality(), &state(), &city()}) {
    if (part->empty()) continue;
    if (!full.empty()) full.push_back('\n');
    full.append(*part);
  }
  return full.empty() ? address() : full;
}

void IOSContactAddressInfo::describe(FieldVisitor& visitor) const {
  ContactSubItemInfo::describe(visitor);
  visitor.field("title", title());
  visitor.field("country", country());
  visitor.field("countryCode", countryCode());
  visitor.field("state", state());
  visitor.field("city", city());
  visitor.field("subLocality", subLocality());
  visitor.field("street", street());
  visitor.field("zip", zip());
  visitor.field("address", address());
  visitor.field("fullAddress", fullAddress());
}

// --- IOSContactItem ---

void IOSContactItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [imagePath, thumbPath] = record.fields({"image_path", "thumb_path"});
  // Pictures decode on first read; here only which files hold them is settled.
  if (imagePath.isString()) {
    std::string path = imagePath.stringCopy();
    if (isBackupFile(path)) {
      imageSize_ = backupFileSize(path);
      if (isReadableFile(path)) setIconPath(std::move(path));
    }
  }
  if (thumbPath.isString()) {
    std::string path = thumbPath.stringCopy();
    if (isReadableFile(path)) {
      if (iconPath().empty()) setIconPath(path);
      texts_.set(kThumbPath, std::move(path));
    }
  }
}

const std::string& IOSContactItem::text(Field field, std::string_view key) const {
  return texts_.get(field, [&] { return rawData()[key].stringCopy(); });
}

const std::string& IOSContactItem::key() const {
  return texts_.get(kKey, [&] { return numberText(rawData()["ROWID"]); });
}

std::string IOSContactItem::displayName() const {
  std::string name = joinedName(first(), middle(), last());
  if (!name.empty()) return name;
  if (!nickName().empty()) return nickName();
  // A deleted contact's phones and e-mails are not looked at.
  if (isDeleted()) return "Unknown";
  for (const auto& phone : phoneInfos()) {
    if (!phone->phoneNumber().empty()) return phone->phoneNumber();
  }
  for (const auto& email : emailInfos()) {
    if (!email->email().empty()) return email->email();
  }
  return "No Name";
}

std::uint64_t IOSContactItem::birthdayType() const {
  if (!birthdayType_) {
    // Compared unsigned, so negative codes fall outside 0..2 too.
    auto code = static_cast<std::uint32_t>(int32Value(rawData()["alt_birthday_type"]));
    birthdayType_ = code <= 2 ? code + 1 : 0;
  }
  return *birthdayType_;
}

const std::string& IOSContactItem::alt_birthday() const {
  return texts_.get(kAltBirthday, [&]() -> std::string {
    std::string_view text = rawData()["AlternateBirthday"].string();
    if (text.empty()) return {};
    switch (birthdayType()) {
      case 1:
        return formattedHebrew(text);
      case 2:
        return formattedIslamic(text);
      case 3:
        return formattedLunarFields(text);
      default:
        return {};
    }
  });
}

const std::string& IOSContactItem::displayBirthday() const {
  return texts_.get(kDisplayBirthday, [&]() -> std::string {
    return birthday().empty() ? std::string() : formattedDateForContact(birthday());
  });
}

const ContactImagePtr& IOSContactItem::image() const {
  loadImage(image_, iconPath());
  return image_;
}

const ContactImagePtr& IOSContactItem::thumb() const {
  if (!thumb_) {
    const std::string& thumbPath = texts_.value(kThumbPath);
    loadImage(thumb_, thumbPath.empty() ? iconPath() : thumbPath);
  }
  return thumb_;
}

IOSContactItem::Lists& IOSContactItem::lists() const {
  if (!lists_) lists_ = std::make_unique<Lists>();
  return *lists_;
}

template <class T>
const std::vector<std::shared_ptr<T>>& IOSContactItem::listOf(
    std::optional<std::vector<std::shared_ptr<T>>>& list, std::string_view key) const {
  if (!list) {
    std::vector<std::shared_ptr<T>> built;
    json::View entries = rawData()[key];
    built.reserve(entries.size());
    for (json::View entry : entries.elements()) {
      built.push_back(IOSBaseItem::itemWithDictionary<T>(rawData().sub(entry)));
    }
    list = std::move(built);
  }
  return *list;
}

const ContactGeneralList& IOSContactItem::phoneInfos() const {
  return listOf(lists().phones, "phone_info");
}
const ContactGeneralList& IOSContactItem::emailInfos() const {
  return listOf(lists().emails, "email_info");
}
const ContactAddressList& IOSContactItem::addressInfos() const {
  return listOf(lists().addresses, "address_info");
}
const ContactGeneralList& IOSContactItem::dateInfos() const {
  return listOf(lists().dates, "date_info");
}
const ContactGeneralList& IOSContactItem::relateNameInfos() const {
  return listOf(lists().relatedNames, "relate_name_info");
}
const ContactGeneralList& IOSContactItem::urlInfos() const {
  return listOf(lists().urls, "url_info");
}
const ContactIMList& IOSContactItem::imInfos() const {
  return listOf(lists().ims, "im_info");
}
const ContactSocialList& IOSContactItem::socialInfos() const {
  return listOf(lists().socials, "social_info");
}

namespace {

// A text of an iCloud record: the value when it is text, else "".
std::string textOf(json::View record, std::string_view key) {
  return record[key].stringCopy();
}

std::string decodedTextOf(json::View record, std::string_view key) {
  json::View value = record[key];
  return value.isString() ? URLDecodedString(value.string()) : std::string();
}

// The labelled list under `key` of an iCloud contact: for each object element, `make(field,
// label)` gives a sub-item or nothing; the list is set only when something was made.
template <class T, class Make, class Set>
void readICloudList(json::View record, std::string_view key, Make&& make, Set&& set) {
  std::vector<std::shared_ptr<T>> list;
  for (json::View element : record[key].elements()) {
    if (!element.isObject()) continue;
    auto [field, label] = element.fields({"field", "label"});
    if (std::shared_ptr<T> item = make(field, label.stringCopy())) list.push_back(std::move(item));
  }
  if (!list.empty()) set(std::move(list));
}

// A sub-item of an iCloud contact. It carries the whole contact record, so that its own lazy
// reads find nothing; its label text is kept, with the matching standard label as `orgLabel`.
template <class T>
std::shared_ptr<T> labelledSubItem(const json::Value& record, std::string label,
                                   std::int64_t type) {
  auto item = IOSBaseItem::itemWithDictionary<T>(record);
  item->setOrgLabel(ContactSubItemInfo::standTypeWithLabel(label, type));
  item->setLabel(std::move(label));
  return item;
}

}  // namespace

void IOSContactItem::initWithiCloudPhotoDict(const json::Value& record,
                                             const std::string& backupPath) {
  IOSBaseItem::initWithDictionary(record);
  json::View r = record.view();
  setKey(textOf(r, "contactId"));
  setFirst(decodedTextOf(r, "firstName"));
  setLast(decodedTextOf(r, "lastName"));
  setMiddle(decodedTextOf(r, "middleName"));
  setNickName(decodedTextOf(r, "nickName"));
  setPrefix(decodedTextOf(r, "prefix"));
  setSuffix(decodedTextOf(r, "suffix"));
  setOrganization(decodedTextOf(r, "companyName"));
  setDepartment(decodedTextOf(r, "department"));
  setJopTitle(decodedTextOf(r, "jobTitle"));
  setNote(decodedTextOf(r, "notes"));
  setBirthday(iCloudStringWithDateFormatter(r["birthday"].string(), kDefaultDateFormat));

  // Phones, dates, e-mails, related names and web addresses: kept with a value or a label.
  auto generalList = [&](std::string_view key, std::int64_t type, bool decode,
                         void (ContactGeneralInfo::*setValue)(std::string),
                         void (IOSContactItem::*setList)(ContactGeneralList)) {
    readICloudList<ContactGeneralInfo>(
        r, key,
        [&](json::View field, std::string label) -> std::shared_ptr<ContactGeneralInfo> {
          std::string value;
          if (type == kContactSubItemDate) {
            value = iCloudStringWithDateFormatter(field.string(), kDefaultDateFormat);
          } else if (decode) {
            value = field.isString() ? URLDecodedString(field.string()) : std::string();
          } else {
            value = field.stringCopy();
          }
          if (value.empty() && label.empty()) return nullptr;
          auto item = labelledSubItem<ContactGeneralInfo>(record, std::move(label), type);
          (item.get()->*setValue)(std::move(value));
          return item;
        },
        [&](ContactGeneralList list) { (this->*setList)(std::move(list)); });
  };
  generalList("phones", kContactSubItemPhone, false, &ContactGeneralInfo::setPhoneNumber,
              &IOSContactItem::setPhoneInfos);
  generalList("dates", kContactSubItemDate, false, &ContactGeneralInfo::setDate,
              &IOSContactItem::setDateInfos);
  generalList("emailAddresses", kContactSubItemEmail, true, &ContactGeneralInfo::setEmail,
              &IOSContactItem::setEmailInfos);
  generalList("relatedNames", kContactSubItemRelatedName, true, &ContactGeneralInfo::setRelateName,
              &IOSContactItem::setRelateNameInfos);
  generalList("urls", kContactSubItemURL, true, &ContactGeneralInfo::setUrl,
              &IOSContactItem::setUrlInfos);

  readICloudList<ContactSocialInfo>(
      r, "profiles",
      [&](json::View field, std::string label) -> std::shared_ptr<ContactSocialInfo> {
        std::string url = field.isString() ? URLDecodedString(field.string()) : std::string();
        if (url.empty() && label.empty()) return nullptr;
        auto item =
            labelledSubItem<ContactSocialInfo>(record, std::move(label), kContactSubItemSocial);
        item->setUsername(path::lastPathComponent(url));
        item->setUrl(std::move(url));
        return item;
      },
      [&](ContactSocialList list) { setSocialInfos(std::move(list)); });

  readICloudList<IOSContactAddressInfo>(
      r, "streetAddresses",
      [&](json::View field, std::string label) -> std::shared_ptr<IOSContactAddressInfo> {
        auto [city, country, countryCode, zip, state, street, subLocality] = field.fields(
            {"city", "country", "countryCode", "postalCode", "state", "street", "subLocality"});
        bool allEmpty = label.empty();
        for (json::View part : {city, country, countryCode, zip, state, street, subLocality}) {
          allEmpty = allEmpty && part.string().empty();
        }
        if (allEmpty) return nullptr;
        auto item = labelledSubItem<IOSContactAddressInfo>(record, std::move(label),
                                                           kContactSubItemAddress);
        item->setCity(city.stringCopy());
        item->setCountry(country.stringCopy());
        item->setCountryCode(countryCode.stringCopy());
        item->setZip(zip.stringCopy());
        item->setState(state.stringCopy());
        item->setStreet(street.stringCopy());
        item->setSubLocality(subLocality.stringCopy());
        return item;
      },
      [&](ContactAddressList list) { setAddressInfos(std::move(list)); });

  readICloudList<IOSContactIMInfo>(
      r, "IMs",
      [&](json::View field, std::string label) -> std::shared_ptr<IOSContactIMInfo> {
        std::string service = decodedTextOf(field, "IMService");
        std::string user = decodedTextOf(field, "userName");
        if (service.empty() && user.empty() && label.empty()) return nullptr;
        auto item = labelledSubItem<IOSContactIMInfo>(record, std::move(label), kContactSubItemIM);
        item->setService(std::move(service));
        item->setUsername(std::move(user));
        return item;
      },
      [&](ContactIMList list) { setImInfos(std::move(list)); });

  // The picture: a downloaded file named after the last component of its address.
  std::string url = r["photo"]["url"].stringCopy();
  if (!backupPath.empty() && !url.empty()) {
    std::string candidate = path::appendingPathComponent(
        backupPath, path::safeComponent(path::lastPathComponent(url) + ".png"));
    if (backupFileExists(candidate)) setIconPath(std::move(candidate));
  }
  setIconUrl(std::move(url));
}

void IOSContactItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("key", key());
  visitor.field("guid", guid());
  visitor.field("prefix", prefix());
  visitor.field("suffix", suffix());
  visitor.field("nickName", nickName());
  visitor.field("first", first());
  visitor.field("middle", middle());
  visitor.field("last", last());
  visitor.field("pronunciationFirst", pronunciationFirst());
  visitor.field("pronunciationLast", pronunciationLast());
  visitor.field("phoneticFirst", phoneticFirst());
  visitor.field("phoneticMiddle", phoneticMiddle());
  visitor.field("phoneticLast", phoneticLast());
  visitor.field("phoneticORG", phoneticORG());
  visitor.field("maidenName", maidenName());
  visitor.field("displayName", displayName());
  visitor.field("birthday", birthday());
  visitor.field("birthdayType", birthdayType());
  visitor.field("alt_birthday", alt_birthday());
  visitor.field("displayBirthday", displayBirthday());
  visitor.field("organization", organization());
  visitor.field("department", department());
  visitor.field("jopTitle", jopTitle());
  visitor.field("note", note());
  visitor.field("imageSize", imageSize());
  visitor.field("image", image());
  visitor.field("thumb", thumb());
  visitor.field("iconPath", iconPath());
  visitor.field("iconUrl", iconUrl());
  visitor.field("phoneInfos", phoneInfos());
  visitor.field("emailInfos", emailInfos());
  visitor.field("addressInfos", addressInfos());
  visitor.field("dateInfos", dateInfos());
  visitor.field("relateNameInfos", relateNameInfos());
  visitor.field("urlInfos", urlInfos());
  visitor.field("imInfos", imInfos());
  visitor.field("socialInfos", socialInfos());
}

// --- IOSContactParser ---

std::shared_ptr<IOSContactParser> IOSContactParser::parserWithJSONData(JSONData data,
                                                                       bool parseDeleted) {
  auto parser = makeWithJSONData<IOSContactParser>(data, parseDeleted, false);
  if (!parser->rawData().isObject()) return parser;
  std::vector<std::string> files;
  for (json::View path : parser->rawData()["contact_file_path"].elements()) {
    std::string file = path.stringCopy();
    if (backupFileExists(file)) files.push_back(std::move(file));
  }
  json::forEachJsonFile(
      files, [&parser](const std::string&, json::Value document, const std::string& error) {
        if (parser->isStopParser()) return false;
        parser->addContactsOf(document, error);
        return true;
      });
  return parser;
}

void IOSContactParser::addContactsOf(const json::Value& document, const std::string& error) {
  if (!document.present()) {
    SystemLog::write("contact error:{}", error);
    return;
  }
  json::View contacts = document["contacts_info"];
  items().reserve(items().size() + contacts.size());
  for (json::View element : contacts.elements()) {
    if (!element.isObject()) continue;
    items().push_back(IOSBaseItem::itemWithDictionary<IOSContactItem>(document.sub(element)));
  }
}

void IOSContactParser::addiCloudJSONData(JSONData data) {
  addJSONData(data);
  for (json::View element : rawData()["contactArr"].elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto contact = makeItem<IOSContactItem>();
    contact->initWithiCloudPhotoDict(rawData().sub(element), backupPath());
    items().push_back(std::move(contact));
  }
}

}  // namespace dataparser
