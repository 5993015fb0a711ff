// Contacts: IOSContactParser turns the address book into IOSContactItem objects, each with its
// scalar name and work fields, an optional picture and eight lists of labelled sub-entries
// (phones, e-mails, postal addresses, dates, related names, web addresses, instant messaging,
// social profiles).
//
// Input from a backup: an object whose "contact_file_path" lists JSON files; each file's
// "contacts_info" lists contact records. From a downloaded iCloud backup: `addiCloudJSONData`
// with a "contactArr" list, built through `initWithiCloudPhotoDict`, which fills the same items
// through their setters. Contacts are never filtered by their deleted mark.
//
// Fields are read from the record on first use and kept; every field has a setter that wins
// over the record. Label texts such as "_$!<Mobile>!$_" are shown as "Mobile"; a label the user
// typed (no markers) shows nothing, and a sub-entry without a label text shows its numeric label
// code. Pictures are decoded on first use.
//
// Ownership: items are shared; a sub-entry list is built once and then shared with callers.
// Thread safety: built on one thread, read from one thread at a time; stopParser() may be called
// from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dataparser/model/base_item.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/parsers/personal/record_fields.h"

namespace dataparser {

class Image;
using ContactImagePtr = std::shared_ptr<const Image>;

// The kinds of labelled entry, which select the list of standard labels.
enum ContactSubItemType : std::int64_t {
  kContactSubItemPhone = 0,
  kContactSubItemEmail = 1,
  kContactSubItemDate = 2,
  kContactSubItemURL = 3,
  kContactSubItemAddress = 4,
  kContactSubItemRelatedName = 5,
  kContactSubItemIM = 6,
  kContactSubItemSocial = 7,
};

// What every labelled sub-entry shares.
class ContactSubItemInfo : public IOSBaseItem {
 public:
  // "label" (the address book's label code) as "%ld"; "0" when missing.
  const std::string& label() const;
  void setLabel(std::string label) { texts_.set(kLabel, std::move(label)); }
  // "property" (the address book's property code) as "%ld"; "0" when missing.
  const std::string& prop() const;
  void setProp(std::string prop) { texts_.set(kProp, std::move(prop)); }
  // "label_name": the raw label text.
  const std::string& orgLabel() const;
  void setOrgLabel(std::string orgLabel) { texts_.set(kOrgLabel, std::move(orgLabel)); }

  // The standard label text of `type` that best matches a free label (see typeFromLabel); the
  // label itself when none matches or `type` has no list; "" for "".
  static std::string standTypeWithLabel(std::string_view label, std::int64_t type);
  // The first candidate of `candidates` whose text, with spaces removed and lower-cased,
  // contains the label so normalised; the label unchanged when none does; "" for "".
  static std::string typeFromLabel(std::string_view label,
                                   const std::vector<std::string_view>& candidates);
  // The standard labels of one entry kind, in order; empty for an unknown kind.
  static const std::vector<std::string_view>& standardLabels(std::int64_t type);

  std::string_view className() const override { return "ContactSubItemInfo"; }
  void describe(FieldVisitor& visitor) const override;

 protected:
  // The label shown to the user: the text between "_$!<" and ">!$_" of "label_name"; nothing
  // for a label without the markers; the `label` code when "label_name" is empty.
  std::string computeTitle() const;

  // Field slots of the shared text store; subclasses continue from kFirstSubclassField.
  enum Field : std::uint8_t { kLabel, kProp, kOrgLabel, kFirstSubclassField };
  mutable LazyTexts<16> texts_;
};

// A phone number, e-mail address, date, related name or web address. The four value fields
// read the same key "value"; the list the entry came from says which one applies.
class ContactGeneralInfo : public ContactSubItemInfo {
 public:
  const std::string& title() const;
  void setTitle(std::string title) { texts_.set(kTitle, std::move(title)); }
  const std::string& display() const;
  void setDisplay(std::string display) { texts_.set(kDisplay, std::move(display)); }
  const std::string& date() const;
  void setDate(std::string date) { texts_.set(kDate, std::move(date)); }
  // `date` shown as "MM-dd-yyyy", or "MM-dd" when it carries no year.
  const std::string& displayDate() const;
  void setDisplayDate(std::string text) { texts_.set(kDisplayDate, std::move(text)); }
  const std::string& phoneNumber() const { return valueField(kPhoneNumber); }
  void setPhoneNumber(std::string value) { texts_.set(kPhoneNumber, std::move(value)); }
  const std::string& email() const { return valueField(kEmail); }
  void setEmail(std::string value) { texts_.set(kEmail, std::move(value)); }
  const std::string& relateName() const { return valueField(kRelateName); }
  void setRelateName(std::string value) { texts_.set(kRelateName, std::move(value)); }
  const std::string& url() const { return valueField(kURL); }
  void setUrl(std::string value) { texts_.set(kURL, std::move(value)); }

  std::string_view className() const override { return "ContactGeneralInfo"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum : std::uint8_t {
    kTitle = kFirstSubclassField,
    kDisplay,
    kDate,
    kDisplayDate,
    kPhoneNumber,
    kEmail,
    kRelateName,
    kURL,
  };
  const std::string& valueField(std::uint8_t field) const;
};

// An instant-messaging account. The parts of "entry_n_key" are read by the constructor.
class IOSContactIMInfo : public ContactSubItemInfo {
 public:
  void initWithDictionary(const json::Value& record) override;

  const std::string& title() const;
  void setTitle(std::string title) { texts_.set(kTitle, std::move(title)); }
  // Entry "service", URL-decoded.
  const std::string& service() const { return texts_.value(kService); }
  void setService(std::string service) { texts_.set(kService, std::move(service)); }
  // Entry "username", URL-decoded.
  const std::string& username() const { return texts_.value(kUsername); }
  void setUsername(std::string username) { texts_.set(kUsername, std::move(username)); }

  std::string_view className() const override { return "IOSContactIMInfo"; }
  void describe(FieldVisitor& visitor) const override;

 protected:
  enum : std::uint8_t { kTitle = kFirstSubclassField, kService, kUsername, kLastIMField };
};

// A social profile: an IM account with an address and the app that shows it. Its title is
// worked out by the constructor.
class ContactSocialInfo : public IOSContactIMInfo {
 public:
  void initWithDictionary(const json::Value& record) override;

  // Entry "url".
  const std::string& url() const { return texts_.value(kURL); }
  void setUrl(std::string url) { texts_.set(kURL, std::move(url)); }
  // Entry "bundleIdentifiers".
  const std::string& bundleIdentifier() const { return texts_.value(kBundleIdentifier); }
  void setBundleIdentifier(std::string id) { texts_.set(kBundleIdentifier, std::move(id)); }

  std::string_view className() const override { return "ContactSocialInfo"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum : std::uint8_t { kURL = kLastIMField, kBundleIdentifier };
};

// A postal address. The parts of "entry_n_key" (or a one-string "address_info") are read by the
// constructor.
class IOSContactAddressInfo : public ContactSubItemInfo {
 public:
  void initWithDictionary(const json::Value& record) override;

  // The label shown to the user; "Other Address" when there is none.
  const std::string& title() const;
  void setTitle(std::string title) { texts_.set(kTitle, std::move(title)); }
  const std::string& country() const { return texts_.value(kCountry); }
  void setCountry(std::string text) { texts_.set(kCountry, std::move(text)); }
  const std::string& countryCode() const { return texts_.value(kCountryCode); }
  void setCountryCode(std::string text) { texts_.set(kCountryCode, std::move(text)); }
  const std::string& state() const { return texts_.value(kState); }
  void setState(std::string text) { texts_.set(kState, std::move(text)); }
  const std::string& city() const { return texts_.value(kCity); }
  void setCity(std::string text) { texts_.set(kCity, std::move(text)); }
  const std::string& subLocality() const { return texts_.value(kSubLocality); }
  void setSubLocality(std::string text) { texts_.set(kSubLocality, std::move(text)); }
  // Entry "Street" with every space turned into a line break.
  const std::string& street() const { return texts_.value(kStreet); }
  void setStreet(std::string text) { texts_.set(kStreet, std::move(text)); }
  const std::string& zip() const { return texts_.value(kZip); }
  void setZip(std::string text) { texts_.set(kZip, std::move(text)); }
  // "address": the whole address as one text.
  const std::string& address() const;
  void setAddress(std::string text) { texts_.set(kAddress, std::move(text)); }
  // Country, zip, street, sub-locality, state and city, the non-empty ones one per line;
  // `address` when all are empty.
  std::string fullAddress() const;

  std::string_view className() const override { return "IOSContactAddressInfo"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum : std::uint8_t {
    kTitle = kFirstSubclassField,
    kCountry,
    kCountryCode,
    kState,
    kCity,
    kSubLocality,
    kStreet,
    kZip,
    kAddress,
  };
};

using ContactGeneralList = std::vector<std::shared_ptr<ContactGeneralInfo>>;
using ContactAddressList = std::vector<std::shared_ptr<IOSContactAddressInfo>>;
using ContactIMList = std::vector<std::shared_ptr<IOSContactIMInfo>>;
using ContactSocialList = std::vector<std::shared_ptr<ContactSocialInfo>>;

class IOSContactItem : public IOSBaseItem {
 public:
  // Base initialisation and the picture files; every other field is read on first use.
  void initWithDictionary(const json::Value& record) override;
  // Builds the contact from a record of the iCloud contact download; `backupPath` is where the
  // downloaded pictures live.
  void initWithiCloudPhotoDict(const json::Value& record, const std::string& backupPath);

  // "ROWID" as "%ld"; "0" when missing.
  const std::string& key() const;
  void setKey(std::string value) { texts_.set(kKey, std::move(value)); }
  const std::string& guid() const { return text(kGuid, "guid"); }
  void setGuid(std::string value) { texts_.set(kGuid, std::move(value)); }
  const std::string& prefix() const { return text(kPrefix, "Prefix"); }
  void setPrefix(std::string value) { texts_.set(kPrefix, std::move(value)); }
  const std::string& suffix() const { return text(kSuffix, "Suffix"); }
  void setSuffix(std::string value) { texts_.set(kSuffix, std::move(value)); }
  const std::string& nickName() const { return text(kNickName, "Nickname"); }
  void setNickName(std::string value) { texts_.set(kNickName, std::move(value)); }
  const std::string& first() const { return text(kFirst, "First"); }
  void setFirst(std::string value) { texts_.set(kFirst, std::move(value)); }
  const std::string& middle() const { return text(kMiddle, "Middle"); }
  void setMiddle(std::string value) { texts_.set(kMiddle, std::move(value)); }
  const std::string& last() const { return text(kLast, "Last"); }
  void setLast(std::string value) { texts_.set(kLast, std::move(value)); }
  // Plain fields: nothing in a backup record fills them.
  const std::string& pronunciationFirst() const { return texts_.value(kPronunciationFirst); }
  void setPronunciationFirst(std::string value) {
    texts_.set(kPronunciationFirst, std::move(value));
  }
  const std::string& pronunciationLast() const { return texts_.value(kPronunciationLast); }
  void setPronunciationLast(std::string value) { texts_.set(kPronunciationLast, std::move(value)); }
  const std::string& phoneticFirst() const { return text(kPhoneticFirst, "FirstPhonetic"); }
  void setPhoneticFirst(std::string value) { texts_.set(kPhoneticFirst, std::move(value)); }
  const std::string& phoneticMiddle() const { return text(kPhoneticMiddle, "MiddlePhonetic"); }
  void setPhoneticMiddle(std::string value) { texts_.set(kPhoneticMiddle, std::move(value)); }
  const std::string& phoneticLast() const { return text(kPhoneticLast, "LastPhonetic"); }
  void setPhoneticLast(std::string value) { texts_.set(kPhoneticLast, std::move(value)); }
  const std::string& phoneticORG() const { return texts_.value(kPhoneticORG); }
  void setPhoneticORG(std::string value) { texts_.set(kPhoneticORG, std::move(value)); }
  const std::string& maidenName() const { return text(kMaidenName, "PreviousFamilyName"); }
  void setMaidenName(std::string value) { texts_.set(kMaidenName, std::move(value)); }

  // First, middle and last name; else the nickname; else "Unknown" for a deleted contact; else
  // the first phone number, the first e-mail address, or "No Name". Worked out on every read.
  std::string displayName() const;

  // "Birthday", the date text as the engine writes it.
  const std::string& birthday() const { return text(kBirthday, "Birthday"); }
  void setBirthday(std::string value) { texts_.set(kBirthday, std::move(value)); }
  // 1 Hebrew, 2 Islamic, 3 Chinese lunar (from "alt_birthday_type" 0, 1, 2); 0 for none.
  std::uint64_t birthdayType() const;
  void setBirthdayType(std::uint64_t type) { birthdayType_ = type; }
  // "AlternateBirthday" in the calendar of `birthdayType`; "" without one.
  const std::string& alt_birthday() const;
  void setAlt_birthday(std::string value) { texts_.set(kAltBirthday, std::move(value)); }
  // `birthday` as "MM-dd-yyyy", or "MM-dd" when it carries no year.
  const std::string& displayBirthday() const;
  void setDisplayBirthday(std::string value) { texts_.set(kDisplayBirthday, std::move(value)); }

  const std::string& organization() const { return text(kOrganization, "Organization"); }
  void setOrganization(std::string value) { texts_.set(kOrganization, std::move(value)); }
  const std::string& department() const { return text(kDepartment, "Department"); }
  void setDepartment(std::string value) { texts_.set(kDepartment, std::move(value)); }
  const std::string& jopTitle() const { return text(kJopTitle, "JobTitle"); }
  void setJopTitle(std::string value) { texts_.set(kJopTitle, std::move(value)); }
  const std::string& note() const { return text(kNote, "Note"); }
  void setNote(std::string value) { texts_.set(kNote, std::move(value)); }

  // Picture: the full picture file's size, the pictures (decoded on first read; a contact with
  // only a thumbnail shows it as its full picture too), the file loaded and, for iCloud records,
  // the download address.
  std::uint64_t imageSize() const { return imageSize_; }
  void setImageSize(std::uint64_t size) { imageSize_ = size; }
  const ContactImagePtr& image() const;
  void setImage(ContactImagePtr image) { image_ = std::move(image); }
  const ContactImagePtr& thumb() const;
  void setThumb(ContactImagePtr thumb) { thumb_ = std::move(thumb); }
  const std::string& iconPath() const { return texts_.value(kIconPath); }
  void setIconPath(std::string path) { texts_.set(kIconPath, std::move(path)); }
  const std::string& iconUrl() const { return texts_.value(kIconUrl); }
  void setIconUrl(std::string url) { texts_.set(kIconUrl, std::move(url)); }

  // The labelled entries, built on first read from "phone_info", "email_info", ... and kept.
  const ContactGeneralList& phoneInfos() const;
  void setPhoneInfos(ContactGeneralList list) { lists().phones = std::move(list); }
  const ContactGeneralList& emailInfos() const;
  void setEmailInfos(ContactGeneralList list) { lists().emails = std::move(list); }
  const ContactAddressList& addressInfos() const;
  void setAddressInfos(ContactAddressList list) { lists().addresses = std::move(list); }
  const ContactGeneralList& dateInfos() const;
  void setDateInfos(ContactGeneralList list) { lists().dates = std::move(list); }
  const ContactGeneralList& relateNameInfos() const;
  void setRelateNameInfos(ContactGeneralList list) { lists().relatedNames = std::move(list); }
  const ContactGeneralList& urlInfos() const;
  void setUrlInfos(ContactGeneralList list) { lists().urls = std::move(list); }
  const ContactIMList& imInfos() const;
  void setImInfos(ContactIMList list) { lists().ims = std::move(list); }
  const ContactSocialList& socialInfos() const;
  void setSocialInfos(ContactSocialList list) { lists().socials = std::move(list); }

  std::string_view className() const override { return "IOSContactItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  enum Field : std::uint8_t {
    kKey,
    kGuid,
    kPrefix,
    kSuffix,
    kNickName,
    kFirst,
    kMiddle,
    kLast,
    kPronunciationFirst,
    kPronunciationLast,
    kPhoneticFirst,
    kPhoneticMiddle,
    kPhoneticLast,
    kPhoneticORG,
    kMaidenName,
    kBirthday,
    kAltBirthday,
    kDisplayBirthday,
    kOrganization,
    kDepartment,
    kJopTitle,
    kNote,
    kIconPath,
    kIconUrl,
    kThumbPath,
    kFieldCount,
  };
  // A text field read from `key` of the record on first use.
  const std::string& text(Field field, std::string_view key) const;

  // The sub-entry lists; each is built on first read (or given to its setter).
  struct Lists {
    std::optional<ContactGeneralList> phones, emails, dates, relatedNames, urls;
    std::optional<ContactAddressList> addresses;
    std::optional<ContactIMList> ims;
    std::optional<ContactSocialList> socials;
  };
  Lists& lists() const;
  template <class T>
  const std::vector<std::shared_ptr<T>>& listOf(
      std::optional<std::vector<std::shared_ptr<T>>>& list, std::string_view key) const;

  LazyTexts<kFieldCount> texts_;
  mutable std::unique_ptr<Lists> lists_;
  mutable ContactImagePtr image_;
  mutable ContactImagePtr thumb_;
  std::uint64_t imageSize_ = 0;
  mutable std::optional<std::uint64_t> birthdayType_;
};

class IOSContactParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  // Reads every existing file of "contact_file_path"; a file that does not decode is logged
  // ("contact error:{error}") and skipped.
  static std::shared_ptr<IOSContactParser> parserWithJSONData(JSONData data, bool parseDeleted);
  // The iCloud contact list: "contactArr" of the record, each built with
  // initWithiCloudPhotoDict and the parser's backupPath. Stops between contacts when asked.
  void addiCloudJSONData(JSONData data);

  std::string_view className() const override { return "IOSContactParser"; }

 private:
  void addContactsOf(const json::Value& document, const std::string& error);
};

}  // namespace dataparser
