#include "dataparser/parsers/personal/contacts.h"

#include <gtest/gtest.h>

#include "dataparser/util/image.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

std::shared_ptr<IOSContactItem> contact(std::string_view json) {
  return IOSBaseItem::itemWithDictionary<IOSContactItem>(json::parse(json));
}

// A contact file holding `contacts` (JSON text of the list's elements).
std::string contactFile(const TempDir& dir, std::string_view name, std::string_view contacts) {
  return dir.write(name, "{\"contacts_info\": [" + std::string(contacts) + "]}");
}

std::shared_ptr<IOSContactParser> parseFiles(const std::vector<std::string>& files,
                                             bool parseDeleted = false) {
  std::string block = "{\"contact_file_path\": [";
  for (std::size_t i = 0; i < files.size(); ++i)
    block += (i ? ",\"" : "\"") + files[i] + "\"";
  return IOSContactParser::parserWithJSONData(block + "]}", parseDeleted);
}

TEST(ContactLabelTest, TitlesShowTheTextBetweenTheMarkers) {
  struct Case {
    const char* entry;
    const char* general;  // title of a phone, e-mail, date, ...
    const char* address;  // title of a postal address with the same label
  };
  const Case cases[] = {
      {R"({"label": 1, "label_name": "_$!<Mobile>!$_"})", "Mobile", "Mobile"},
      {R"({"label": 3, "label_name": "_$!<HomeFAX>!$_"})", "HomeFAX", "HomeFAX"},
      {R"({"label_name": "_$!<>!$_"})", "", "Other Address"},
      // Typed by the user, not a label: nothing to show.
      {R"({"label": 9, "label_name": "Cottage"})", "", "Other Address"},
      {R"({"label_name": "_$!<Mobile"})", "", "Other Address"},
      // No label text: the numeric code.
      {R"({"label": 7, "label_name": ""})", "7", "7"},
      {R"({"label": 7, "label_name": null})", "7", "7"},
      {R"({"label": "7", "label_name": 5})", "0", "0"},
      {R"({})", "0", "0"},
  };
  for (const Case& c : cases) {
    json::Value record = json::parse(c.entry);
    EXPECT_EQ(IOSBaseItem::itemWithDictionary<ContactGeneralInfo>(record)->title(), c.general)
        << c.entry;
    EXPECT_EQ(IOSBaseItem::itemWithDictionary<IOSContactIMInfo>(record)->title(), c.general)
        << c.entry;
    EXPECT_EQ(IOSBaseItem::itemWithDictionary<ContactSocialInfo>(record)->title(), c.general)
        << c.entry;
    EXPECT_EQ(IOSBaseItem::itemWithDictionary<IOSContactAddressInfo>(record)->title(), c.address)
        << c.entry;
  }
  auto phone = IOSBaseItem::itemWithDictionary<ContactGeneralInfo>(
      json::parse(R"({"label": 2, "property": 3, "label_name": "_$!<Work>!$_", "value": "+1"})"));
  EXPECT_EQ(phone->label(), "2");
  EXPECT_EQ(phone->prop(), "3");
  EXPECT_EQ(phone->orgLabel(), "_$!<Work>!$_");
  EXPECT_EQ(phone->phoneNumber(), "+1");
  EXPECT_EQ(phone->email(), "+1");  // the four value fields read the same key
}

TEST(ContactLabelTest, StandardLabelsMatchByContainment) {
  struct Case {
    const char* label;
    std::int64_t type;
    const char* standard;
  };
  const Case cases[] = {
      {"mobile", kContactSubItemPhone, "_$!<Mobile>!$_"},
      {"work", kContactSubItemPhone, "_$!<Work>!$_"},  // before WorkFAX: list order decides
      {"HOME FAX", kContactSubItemPhone, "_$!<HomeFAX>!$_"},
      {"fax", kContactSubItemPhone, "_$!<HomeFAX>!$_"},
      {"apple watch", kContactSubItemPhone, "Apple Watch"},
      {"icloud", kContactSubItemEmail, "iCloud"},
      {"anniversary", kContactSubItemDate, "_$!<Anniversary>!$_"},
      {"homepage", kContactSubItemURL, "_$!<HomePage>!$_"},
      {"Cottage", kContactSubItemAddress, "Cottage"},
      {"elder sister", kContactSubItemRelatedName, "_$!<ElderSister>!$_"},
      {"skype", kContactSubItemIM, "Skype"},
      {"Twitter", kContactSubItemSocial, "twitter"},
      {"home", 8, "home"},
      {"home", -1, "home"},
      {"", kContactSubItemPhone, ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ContactSubItemInfo::standTypeWithLabel(c.label, c.type), c.standard)
        << c.label << " " << c.type;
  }
  EXPECT_EQ(ContactSubItemInfo::typeFromLabel("x", {}), "x");
}

TEST(ContactItemTest, BirthdaysAndAlternateCalendars) {
  struct Case {
    const char* fields;
    std::uint64_t type;
    const char* alternate;
  };
  const Case cases[] = {
      {R"("alt_birthday_type": 2, "AlternateBirthday": "0,0,0,4721,12,30")", 3, "腊月三十"},
      {R"("alt_birthday_type": 2, "AlternateBirthday": "0,0,0,4721,1,1")", 3, "正月初一"},
      {R"("alt_birthday_type": 2, "AlternateBirthday": "0,0,0,4721,11,21")", 3, "冬月廿一"},
      {R"("alt_birthday_type": 2, "AlternateBirthday": "0,0,0,4721,12,0")", 3, ""},
      {R"("alt_birthday_type": 2, "AlternateBirthday": "0,0,0,4721,12,31")", 3, ""},
      {R"("alt_birthday_type": 2, "AlternateBirthday": "0,0,0,4721,13,1")", 3, ""},
      {R"("alt_birthday_type": 2, "AlternateBirthday": "0,0,4721,12,30")", 3, ""},
      {R"("alt_birthday_type": 2, "AlternateBirthday": "")", 3, ""},
      {R"("alt_birthday_type": 0, "AlternateBirthday": "0,0,0,5784,7,15")", 1, "5784-7-15"},
      {R"("alt_birthday_type": 1, "AlternateBirthday": "0,0,0,1445,9,1")", 2, "1445-9-1"},
      {R"("alt_birthday_type": 1, "AlternateBirthday": "0,0,0,0,9,1")", 2, "9-1"},
      {R"("alt_birthday_type": 3, "AlternateBirthday": "0,0,0,4721,12,30")", 0, ""},
      {R"("alt_birthday_type": -1, "AlternateBirthday": "0,0,0,4721,12,30")", 0, ""},
      {R"("alt_birthday_type": 4294967298, "AlternateBirthday": "0,0,0,4721,12,30")", 3,
       "腊月三十"},
      {R"("alt_birthday_type": "2", "AlternateBirthday": "0,0,0,4721,12,30")", 1, "4721-12-30"},
      {R"("AlternateBirthday": 5)", 1, ""},
  };
  for (const Case& c : cases) {
    auto item = contact(std::string("{") + c.fields + "}");
    EXPECT_EQ(item->birthdayType(), c.type) << c.fields;
    EXPECT_EQ(item->alt_birthday(), c.alternate) << c.fields;
  }
  const std::pair<const char*, const char*> birthdays[] = {
      {"05-06-1604 00:00:00", "05-06"},
      {"05-06-1990 00:00:00", "05-06-1990"},
      {"", ""},
      {"1990-05-06", ""},
  };
  for (const auto& [birthday, shown] : birthdays) {
    auto item = contact(std::string(R"({"Birthday": ")") + birthday + "\"}");
    EXPECT_EQ(item->birthday(), birthday);
    EXPECT_EQ(item->displayBirthday(), shown) << birthday;
  }
  auto date = IOSBaseItem::itemWithDictionary<ContactGeneralInfo>(
      json::parse(R"({"date": "12-24-1603 00:00:00", "label_name": "_$!<Anniversary>!$_"})"));
  EXPECT_EQ(date->displayDate(), "12-24");
  EXPECT_EQ(date->title(), "Anniversary");
}

TEST(ContactItemTest, DisplayNames) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"First": "Ann", "Middle": "B", "Last": "Lee", "Nickname": "Annie"})", "Ann B Lee"},
      {R"({"Last": "Lee", "Prefix": "Dr", "Suffix": "Jr"})", "Lee"},
      {R"({"Middle": "B"})", "B"},
      {R"({"Nickname": "Annie", "phone_info": [{"value": "+1"}]})", "Annie"},
      {R"({"phone_info": [{"value": ""}, {"value": "+1 555"}], "email_info": [{"value": "a@x"}]})",
       "+1 555"},
      {R"({"phone_info": [{"value": ""}], "email_info": [{"value": ""}, {"value": "a@x"}]})",
       "a@x"},
      {R"({"phone_info": [{"value": "+1 555"}], "tag": "deleted"})", "Unknown"},
      {R"({"phone_info": [], "email_info": "x"})", "No Name"},
      {R"({})", "No Name"},
  };
  for (const auto& [record, name] : cases)
    EXPECT_EQ(contact(record)->displayName(), name) << record;
}

TEST(ContactItemTest, AddressesAndMultiPartEntries) {
  auto item = contact(R"({"address_info": [
      {"label_name": "_$!<Home>!$_", "entry_n_key": [
          {"entry_key": "Street", "entry": "1 Infinite Loop"}, {"entry_key": "City", "entry": "Cupertino"},
          {"entry_key": "ZIP", "entry": "95014"}, {"entry_key": "Country", "entry": "USA"},
          {"entry_key": "CountryCode", "entry": "us"}, {"entry_key": "State", "entry": "CA"},
          {"entry_key": "SubLocality", "entry": "Valley"}]},
      {"entry_n_key": [{"entry_key": "ZIP", "entry": "10001"}, {"entry_key": "City", "entry": "NYC"},
          "junk", {"entry_key": "City", "entry": 5}, {"entry_key": "Planet", "entry": "Earth"},
          {"entry_key": "ZIP", "entry": "10002"}]},
      {"address_info": "12 Main St", "entry_n_key": [{"entry_key": "City", "entry": "X"}]},
      {"address": "Somewhere 5"},
      7]})");
  const ContactAddressList& addresses = item->addressInfos();
  ASSERT_EQ(addresses.size(), 5u);
  EXPECT_EQ(addresses[0]->street(), "1\nInfinite\nLoop");
  EXPECT_EQ(addresses[0]->fullAddress(), "USA\n95014\n1\nInfinite\nLoop\nValley\nCA\nCupertino");
  EXPECT_EQ(addresses[0]->countryCode(), "us");
  EXPECT_EQ(addresses[0]->title(), "Home");
  EXPECT_EQ(addresses[1]->fullAddress(), "10002\nNYC");  // later parts replace earlier ones
  EXPECT_EQ(addresses[2]->street(), "12 Main St");       // one string, kept as it is
  EXPECT_EQ(addresses[2]->city(), "");
  EXPECT_EQ(addresses[3]->fullAddress(), "Somewhere 5");
  EXPECT_EQ(addresses[4]->fullAddress(), "");  // not an object: an empty entry
  EXPECT_EQ(addresses[4]->title(), "0");

  auto accounts = contact(R"({"im_info": [{"label_name": "_$!<Work>!$_", "entry_n_key": [
          {"entry_key": "service", "entry": "Google%20Talk"}, {"entry_key": "username", "entry": "a+b%40x"}]}],
      "social_info": [{"label_name": "_$!<Twitter>!$_", "entry_n_key": [
          {"entry_key": "service", "entry": "twitter"}, {"entry_key": "username", "entry": "ann"},
          {"entry_key": "url", "entry": "http://twitter.com/ann%20x"},
          {"entry_key": "bundleIdentifiers", "entry": "com.atebits.Tweetie2"}]}]})");
  ASSERT_EQ(accounts->imInfos().size(), 1u);
  EXPECT_EQ(accounts->imInfos()[0]->service(), "Google Talk");
  EXPECT_EQ(accounts->imInfos()[0]->username(), "a b@x");
  EXPECT_EQ(accounts->imInfos()[0]->title(), "Work");
  ASSERT_EQ(accounts->socialInfos().size(), 1u);
  const auto& social = accounts->socialInfos()[0];
  EXPECT_EQ(social->title(), "Twitter");
  EXPECT_EQ(social->username(), "ann");
  EXPECT_EQ(social->url(), "http://twitter.com/ann%20x");
  EXPECT_EQ(social->bundleIdentifier(), "com.atebits.Tweetie2");
}

TEST(ContactItemTest, EveryFieldNullOrOfTheWrongType) {
  auto item = contact(R"({"ROWID": null, "guid": null, "First": null, "Middle": 1, "Last": [],
      "Nickname": {}, "Birthday": null, "alt_birthday_type": null, "AlternateBirthday": null,
      "Organization": null, "Department": 2, "JobTitle": null, "Note": null, "image_path": null,
      "thumb_path": 5, "phone_info": null, "email_info": null, "address_info": null,
      "date_info": null, "relate_name_info": {}, "url_info": "x", "im_info": null,
      "social_info": null, "FirstPhonetic": null, "PreviousFamilyName": null})");
  EXPECT_EQ(item->key(), "0");
  EXPECT_EQ(item->displayName(), "No Name");
  EXPECT_EQ(item->first() + item->middle() + item->last() + item->nickName() + item->guid(), "");
  EXPECT_EQ(item->birthday() + item->displayBirthday() + item->alt_birthday(), "");
  EXPECT_EQ(item->birthdayType(), 1u);  // a missing type reads as 0: Hebrew, with nothing to show
  EXPECT_EQ(item->organization() + item->department() + item->jopTitle() + item->note(), "");
  EXPECT_EQ(item->phoneticFirst() + item->maidenName() + item->iconPath(), "");
  EXPECT_EQ(item->phoneInfos().size() + item->emailInfos().size() + item->addressInfos().size() +
                item->dateInfos().size() + item->relateNameInfos().size() +
                item->urlInfos().size() + item->imInfos().size() + item->socialInfos().size(),
            0u);
  EXPECT_FALSE(item->image());
  EXPECT_FALSE(item->thumb());
  EXPECT_EQ(item->imageSize(), 0u);
  EXPECT_EQ(contact(R"({"ROWID": 42})")->key(), "42");
}

TEST(ContactItemTest, PicturesAndSetters) {
  TempDir dir;
  std::string png = testing::fixturePath("images/picture.png");
  std::string jpg = testing::fixturePath("images/picture.jpg");
  auto both = contact(R"({"image_path": ")" + png + R"(", "thumb_path": ")" + jpg + R"("})");
  EXPECT_EQ(both->iconPath(), png);
  ASSERT_TRUE(both->image());
  ASSERT_TRUE(both->thumb());
  EXPECT_GT(both->imageSize(), 0u);

  // Only a thumbnail: it is the full picture too.
  auto thumbOnly =
      contact(R"({"image_path": ")" + dir.str() + R"(/gone.png", "thumb_path": ")" + jpg + R"("})");
  EXPECT_EQ(thumbOnly->iconPath(), jpg);
  ASSERT_TRUE(thumbOnly->image());
  EXPECT_EQ(thumbOnly->image()->width(), thumbOnly->thumb()->width());
  EXPECT_EQ(thumbOnly->imageSize(), 0u);

  // A folder or a file that is no picture gives no picture and no crash.
  std::string notPicture = dir.write("x.png", "not a picture");
  auto bad =
      contact(R"({"image_path": ")" + dir.str() + R"(", "thumb_path": ")" + notPicture + R"("})");
  EXPECT_FALSE(bad->image());
  EXPECT_FALSE(bad->thumb());

  auto set = contact(R"({"First": "Ann", "phone_info": [{"value": "+1"}]})");
  set->setFirst("Bo");
  set->setPhoneInfos({});
  set->setBirthdayType(3);
  set->setAlt_birthday("x");
  EXPECT_EQ(set->displayName(), "Bo");
  EXPECT_TRUE(set->phoneInfos().empty());
  EXPECT_EQ(set->birthdayType(), 3u);
  EXPECT_EQ(set->alt_birthday(), "x");
}

TEST(ContactParserTest, ReadsEveryExistingFileInOrder) {
  testing::LogCapture logs;
  TempDir dir;
  std::string a =
      contactFile(dir, "a.json",
                  R"({"First": "A1"}, 7, "x", {"tag": "deleted", "phone_info": [{"value": "9"}]})");
  std::string b = contactFile(dir, "b.json", R"({"First": "B1"})");
  std::string broken = dir.write("broken.json", "{\"contacts_info\": [");
  auto parser = parseFiles({a, dir.str() + "/missing.json", broken, b});
  std::vector<std::string> names;
  for (const ItemPtr& item : parser->items()) {
    names.push_back(std::static_pointer_cast<IOSContactItem>(item)->displayName());
  }
  // Deleted contacts stay, whatever the switch says.
  EXPECT_EQ(names, (std::vector<std::string>{"A1", "Unknown", "B1"}));
  ASSERT_EQ(logs.system().lines().size(), 1u);
  EXPECT_TRUE(logs.system().lines()[0].starts_with("contact error:"));

  for (const char* text : {"[]", "{}", R"({"contact_file_path": "x"})", "not json",
                           R"({"contact_file_path": [null, 5, ""]})"}) {
    EXPECT_TRUE(IOSContactParser::parserWithJSONData(text, true)->items().empty()) << text;
  }
}

TEST(ContactParserTest, ICloudContacts) {
  testing::LocalZone zone("UTC");
  TempDir dir;
  dir.write("photos/abc123.png", "png");
  auto parser = std::make_shared<IOSContactParser>();
  parser->setBackupPath(dir.str() + "/photos");
  parser->addiCloudJSONData(R"({"contactArr": [
      {"contactId": "C1", "firstName": "Ann%20Marie", "lastName": "Lee", "companyName": "A+B",
       "birthday": "1990-05-06", "photo": {"url": "https://p.example/x/abc123"},
       "phones": [{"field": "+1 555", "label": "HOME FAX"}, {"field": "", "label": ""},
                  {"field": "+2", "label": "mobile"}],
       "dates": [{"field": "2001-02-03", "label": "anniversary"}],
       "emailAddresses": [{"field": "a%40x.org", "label": 5}],
       "profiles": [{"field": "http://twitter.com/ann", "label": "twitter"}],
       "streetAddresses": [{"field": {"city": "Paris", "postalCode": "75001"}, "label": "work"},
                           {"field": {}, "label": ""}],
       "IMs": [{"field": {"IMService": "Skype", "userName": "ann%2Elee"}, "label": ""}]},
      "not a contact",
      {"contactId": 5, "photo": {"url": "https://p.example/none"}}]})");
  ASSERT_EQ(parser->items().size(), 2u);
  auto ann = std::static_pointer_cast<IOSContactItem>(parser->items()[0]);
  EXPECT_EQ(ann->key(), "C1");
  EXPECT_EQ(ann->displayName(), "Ann Marie Lee");
  EXPECT_EQ(ann->organization(), "A B");
  EXPECT_EQ(ann->birthday(), "05-06-1990 00:00:00");
  EXPECT_EQ(ann->iconUrl(), "https://p.example/x/abc123");
  EXPECT_EQ(ann->iconPath(), dir.str() + "/photos/abc123.png");
  ASSERT_EQ(ann->phoneInfos().size(), 2u);
  EXPECT_EQ(ann->phoneInfos()[0]->phoneNumber(), "+1 555");
  EXPECT_EQ(ann->phoneInfos()[0]->label(), "HOME FAX");
  EXPECT_EQ(ann->phoneInfos()[0]->orgLabel(), "_$!<HomeFAX>!$_");
  EXPECT_EQ(ann->phoneInfos()[0]->title(), "HOME FAX");
  EXPECT_EQ(ann->phoneInfos()[1]->orgLabel(), "_$!<Mobile>!$_");
  ASSERT_EQ(ann->dateInfos().size(), 1u);
  EXPECT_EQ(ann->dateInfos()[0]->date(), "02-03-2001 00:00:00");
  EXPECT_EQ(ann->dateInfos()[0]->orgLabel(), "_$!<Anniversary>!$_");
  ASSERT_EQ(ann->emailInfos().size(), 1u);
  EXPECT_EQ(ann->emailInfos()[0]->email(), "a@x.org");
  EXPECT_EQ(ann->emailInfos()[0]->label(), "");
  ASSERT_EQ(ann->socialInfos().size(), 1u);
  EXPECT_EQ(ann->socialInfos()[0]->username(), "ann");
  EXPECT_EQ(ann->socialInfos()[0]->orgLabel(), "twitter");
  ASSERT_EQ(ann->addressInfos().size(), 1u);
  EXPECT_EQ(ann->addressInfos()[0]->fullAddress(), "75001\nParis");
  EXPECT_EQ(ann->addressInfos()[0]->orgLabel(), "_$!<Work>!$_");
  ASSERT_EQ(ann->imInfos().size(), 1u);
  EXPECT_EQ(ann->imInfos()[0]->username(), "ann.lee");
  EXPECT_TRUE(ann->urlInfos().empty());

  auto bare = std::static_pointer_cast<IOSContactItem>(parser->items()[1]);
  EXPECT_EQ(bare->key(), "");
  EXPECT_EQ(bare->iconPath(), "");
  EXPECT_EQ(bare->displayName(), "No Name");

  // A stop request ends the list between contacts.
  auto stopped = std::make_shared<IOSContactParser>();
  stopped->stopParser();
  stopped->addiCloudJSONData(R"({"contactArr": [{"contactId": "1"}]})");
  EXPECT_TRUE(stopped->items().empty());
}

}  // namespace
}  // namespace dataparser
