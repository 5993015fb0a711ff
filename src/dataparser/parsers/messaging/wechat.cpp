#include "dataparser/parsers/messaging/wechat.h"

#include <fmt/core.h>

#include <filesystem>
#include <unordered_map>
#include <vector>

#include "dataparser/model/payload.h"
#include "dataparser/net/url_data.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/image.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"

namespace dataparser {

// --- WeChatFeed ---

class WeChatFeed {
 public:
  bool parseDeleted = true;
  bool deviceBackup = false;
  // Where the files named by chat conversations go; nullptr: they are not collected.
  ItemList* attachments = nullptr;
  // Whose stop flag ends the feed; nullptr: it runs to the end.
  const IOSBaseParser* parser = nullptr;

  bool stopped() const { return parser != nullptr && parser->isStopParser(); }

  // The local copy of the sticker picture at `url`, fetched once per address into the working
  // root's "data/thumbnail" under the first free name weixinEmoji_N.png; "" when the address
  // gives no data (remembered as well, so a dead address costs one attempt).
  const std::string& emojiPicture(const std::string& url);

  // Adds the files that one message record names: its media file and its thumbnail.
  void collectRecord(json::View record);
  // Adds a conversation picture.
  void collectPicture(const std::string& local, std::string device);

  // Whether a file exists at `path`, a text of the record being read. The file collection and
  // the message's attachment test the same paths of a record; each is looked up once. Entries
  // are told apart by where their text lies in the record's document, so they are forgotten
  // before another record is read.
  bool onDisk(std::string_view path);
  void forgetRecord() { seen_.clear(); }

 private:
  struct Seen {
    const char* data;
    std::size_t size;
    bool found;
  };
  std::vector<Seen> seen_;
  std::unordered_map<std::string, std::string> emojiFiles_;
  std::int64_t nextEmojiNumber_ = 0;
};

namespace {

bool exists(std::string_view path) {
  return !path.empty() && backupFileExists(std::string(path));
}

// A file's place on this computer and on the phone.
struct FilePlace {
  std::string_view local;
  std::string_view device;
  bool found = false;
};

// The first of two places whose local file exists; not found when neither does.
FilePlace firstExisting(WeChatFeed& feed, json::View local, json::View device,
                        json::View otherLocal, json::View otherDevice) {
  if (feed.onDisk(local.string())) return {local.string(), device.string(), true};
  if (feed.onDisk(otherLocal.string())) return {otherLocal.string(), otherDevice.string(), true};
  return {};
}

// Kinds whose messages a conversation does not show: kind 14, mini-programs and articles.
bool isHiddenKind(std::uint64_t kind) {
  return kind == kAttachmentUnlabelled || kind == kAttachmentMiniProgram ||
         kind == kAttachmentSubscribeNews;
}

// The display kind of a message kind, without looking at any file name: a kind the fixed table
// does not decide is "other" here (the attachment still classifies its file later).
std::uint64_t kindOfFlag(const IOSAttachmentItem& attachment) {
  const std::int32_t flag = attachment.flag();
  if (flag == -1 || (flag > 19 && flag != 30 && flag != 34)) return kAttachmentOther;
  return attachment.type();
}

}  // namespace

const std::string& WeChatFeed::emojiPicture(const std::string& url) {
  auto found = emojiFiles_.find(url);
  if (found != emojiFiles_.end()) return found->second;
  std::string path;
  if (std::optional<std::string> data = dataWithContentsOfURL(url)) {
    const std::string folder = productDomainPath() + "/data/thumbnail";
    createDirectories(folder);
    std::string candidate;
    do {
      candidate = fmt::format("{}/weixinEmoji_{}.png", folder, nextEmojiNumber_++);
    } while (fileExists(candidate));
    if (writeFileAtomically(candidate, *data)) path = std::move(candidate);
  }
  return emojiFiles_.emplace(url, std::move(path)).first->second;
}

bool WeChatFeed::onDisk(std::string_view path) {
  if (path.empty()) return false;
  for (const Seen& entry : seen_) {
    if (entry.data == path.data() && entry.size == path.size()) return entry.found;
  }
  const bool found = exists(path);
  seen_.push_back({path.data(), path.size(), found});
  return found;
}

void WeChatFeed::collectPicture(const std::string& local, std::string device) {
  if (attachments == nullptr || !exists(local)) return;
  AttachmentPtr picture = IOSAttachmentItem::item();
  picture->setType(kAttachmentPhoto);
  picture->setLocalPath(local);
  picture->setDevicePath(std::move(device));
  attachments->push_back(std::move(picture));
}

void WeChatFeed::collectRecord(json::View record) {
  forgetRecord();
  if (attachments == nullptr) return;
  auto [contentType, mediaType, title, mediaLocal, mediaDevice, otherMediaLocal, otherMediaDevice,
        thumbLocal, otherThumbLocal] =
      record.fields({"content_type", "media_type", "title", "media_backup", "media_path",
                     "other_media_backup", "other_media_path", "thumb_backup",
                     "other_thumb_backup"});
  FilePlace media =
      firstExisting(*this, mediaLocal, mediaDevice, otherMediaLocal, otherMediaDevice);
  std::string_view thumb = onDisk(thumbLocal.string())        ? thumbLocal.string()
                           : onDisk(otherThumbLocal.string()) ? otherThumbLocal.string()
                                                              : std::string_view();
  // Without a device backup only files on disk count; a device backup may name files that
  // arrive later, so its named media files are listed all the same.
  if (!media.found && (!deviceBackup || mediaLocal.string().empty())) {
    if (thumb.empty()) return;
  } else {
    if (!media.found) media = {mediaLocal.string(), mediaDevice.string(), false};
    AttachmentPtr file = IOSAttachmentItem::item();
    file->setName(title.stringCopy());
    file->setLocalPath(std::string(media.local));
    file->setDevicePath(std::string(media.device));
    file->setMediaFlag(static_cast<std::int32_t>(mediaType.integer()));
    attachments->push_back(std::move(file));
  }
  // A photo on disk is its own picture; its thumbnail is listed only when the photo is missing.
  const std::int64_t kind = contentType.integer();
  if (thumb.empty() || ((kind == 1 || kind == 6) && media.found)) return;
  AttachmentPtr picture = IOSAttachmentItem::item();
  picture->setType(kAttachmentPhoto);
  picture->setName(title.stringCopy());
  picture->setThumbPath(std::string(thumb));
  attachments->push_back(std::move(picture));
}

std::string_view weChatPaymentStatusKey(std::uint64_t kind, std::uint64_t status) {
  static constexpr std::string_view kTransfer[] = {
      "WeChatMoneyTransferUnaccalimed", "WeChatMoneyTransferExpired", "WeChatMoneyTransferReceived",
      "WeChatMoneyTransferRefunded"};
  static constexpr std::string_view kRedPacket[] = {
      "WeChatRedPacketUnaccalimed", "WeChatRedPacketExpired", "WeChatRedPacketReceived",
      "WeChatRedPacketRefunded"};
  if (status > 3) return {};
  if (kind == kAttachmentMoneyTransfer) return kTransfer[status];
  if (kind == kAttachmentRedPacket) return kRedPacket[status];
  return {};
}

// --- IOSWeChatSingleItem ---

void IOSWeChatSingleItem::initWithDictionary(const json::Value& record) {
  read(record, "data_time");
}

void IOSWeChatSingleItem::initWithInlineDictionary(const json::Value& record) {
  read(record, "date_time");
}

void IOSWeChatSingleItem::read(const json::Value& record, std::string_view dateKey) {
  auto [type, date, fromOther, sendState, fromId, tag] =
      record.fields({"content_type", dateKey, "is_from_other", "send_state", "from_id", "tag"});
  initWithRecord(record, type);
  primeTag(tag);
  setIsReceived(fromOther.integer() == 1);
  setIsSendSuccess(sendState.integer() == 0);
  if (std::string_view text = date.string(); !text.empty()) {
    setSendDate(dateWithDateFormatter(text));
  }
  setFrom(fromId.stringCopy());
}

const std::string& IOSWeChatSingleItem::text() const {
  if (!hasTextField(kTextField)) {
    storeTextField(kTextField, flag() == 0 ? rawData()["text"].stringCopy() : std::string());
  }
  return textField(kTextField);
}

const std::string& IOSWeChatSingleItem::strSendDate() const {
  return sendDateInDisplayFormat();
}

bool IOSWeChatSingleItem::buildAttachment(WeChatFeed& feed) {
  AttachmentPtr attachment = IOSAttachmentItem::item();
  attachment->setFlag(flag());
  const std::uint64_t kind = flag() == 30 ? kAttachmentLink : kindOfFlag(*attachment);
  if (isHiddenKind(kind)) {
    feed.forgetRecord();
    return false;
  }

  auto [text, title, summary, url, money, status, duration, locationInfo, poiName, contactName,
        fileSize, mediaType, mediaLocal, mediaDevice, otherMediaLocal, otherMediaDevice, thumbLocal,
        thumbDevice, otherThumbLocal, otherThumbDevice] = rawData().fields({"text",
                                                                            "title",
                                                                            "summary",
                                                                            "url",
                                                                            "money",
                                                                            "wcpay_status",
                                                                            "duration",
                                                                            "location_info",
                                                                            "poiname",
                                                                            "contact_name",
                                                                            "file_size",
                                                                            "media_type",
                                                                            "media_backup",
                                                                            "media_path",
                                                                            "other_media_backup",
                                                                            "other_media_path",
                                                                            "thumb_backup",
                                                                            "thumb_path",
                                                                            "other_thumb_backup",
                                                                            "other_thumb_path"});
  auto seconds = [d = duration] { return static_cast<float>(d.numberFromText()); };
  // Video and plain files: the first place whose file exists, for the file and the thumbnail.
  // Structured bindings are captured through init-captures (older compilers refuse them otherwise).
  auto resolveFiles = [&, mediaLocal = mediaLocal, mediaDevice = mediaDevice,
                       otherMediaLocal = otherMediaLocal, otherMediaDevice = otherMediaDevice,
                       thumbLocal = thumbLocal, thumbDevice = thumbDevice,
                       otherThumbLocal = otherThumbLocal, otherThumbDevice = otherThumbDevice] {
    if (FilePlace file =
            firstExisting(feed, mediaLocal, mediaDevice, otherMediaLocal, otherMediaDevice);
        file.found) {
      attachment->setLocalPath(std::string(file.local));
      attachment->setDevicePath(std::string(file.device));
    }
    if (FilePlace thumb =
            firstExisting(feed, thumbLocal, thumbDevice, otherThumbLocal, otherThumbDevice);
        thumb.found) {
      attachment->setThumbPath(std::string(thumb.local));
      attachment->setResolvedThumbPath(std::string(thumb.device));
    }
  };

  switch (kind) {
    case kAttachmentLink: {
      attachment->setType(kAttachmentLink);
      auto link = makeItem<LinkItem>();
      link->setTitle(title.stringCopy());
      link->setSummary(summary.stringCopy());
      link->setText(text.stringCopy());
      link->setUrl(text.stringCopy());
      attachment->setLink(std::move(link));
      break;
    }
    case kAttachmentEmoji: {
      auto emoji = makeItem<EmojiItem>();
      emoji->setUrl(url.stringCopy());
      const std::string& picture = feed.emojiPicture(emoji->url());
      if (picture.empty()) {
        RunLog::write("download Emoji Faild:{}", emoji->url());
      } else {
        attachment->setThumbPath(picture);
        attachment->setName(path::lastPathComponent(picture));
      }
      attachment->setEmoji(std::move(emoji));
      break;
    }
    case kAttachmentPhoto:
      attachment->setDevicePath(mediaDevice.stringCopy());
      if (feed.onDisk(mediaLocal.string())) attachment->setLocalPath(mediaLocal.stringCopy());
      if (feed.onDisk(thumbLocal.string())) attachment->setThumbPath(thumbLocal.stringCopy());
      break;
    case kAttachmentMoneyTransfer:
    case kAttachmentRedPacket: {
      auto payment = makeItem<MoneyItem>();
      payment->setText(kind == kAttachmentMoneyTransfer ? text.stringCopy() : title.stringCopy());
      if (kind == kAttachmentMoneyTransfer) payment->setMoney(money.stringCopy());
      payment->setStatus(static_cast<std::uint64_t>(status.integer()));
      payment->setStrStatus(std::string(weChatPaymentStatusKey(kind, payment->status())));
      attachment->setMoney(std::move(payment));
      break;
    }
    case kAttachmentVoiceCall:
    case kAttachmentVideoCall: {
      auto call = makeItem<CallDurationItem>();
      call->setDuration(seconds());
      attachment->setCallDuration(std::move(call));
      break;
    }
    case kAttachmentLocation: {
      auto location = makeItem<LocationItem>();
      location->setLocalInfo(poiName.stringCopy());
      location->setDomain(locationInfo.stringCopy());
      attachment->setLocation(std::move(location));
      break;
    }
    case kAttachmentContactCard: {
      auto contact = makeItem<ContactItem>();
      contact->setName(contactName.stringCopy());
      attachment->setContact(std::move(contact));
      break;
    }
    case kAttachmentAudio: {
      if (feed.onDisk(mediaLocal.string())) {
        attachment->setLocalPath(mediaLocal.stringCopy());
        attachment->setDevicePath(mediaDevice.stringCopy());
      }
      auto voice = makeItem<VoiceItem>();
      voice->setDuration(seconds());
      attachment->setVoice(std::move(voice));
      break;
    }
    case kAttachmentVideo: {
      resolveFiles();
      auto video = makeItem<VideoItem>();
      video->setDuration(seconds());
      attachment->setVideo(std::move(video));
      break;
    }
    case kAttachmentDocument:
      attachment->setMediaFlag(static_cast<std::int32_t>(mediaType.integer()));
      attachment->setSize(fileSize.integerFromText());
      attachment->setName(title.stringCopy());
      if (feed.onDisk(mediaLocal.string())) {
        attachment->setLocalPath(mediaLocal.stringCopy());
        attachment->setDevicePath(mediaDevice.stringCopy());
      }
      break;
    default:
      attachment->setName(title.stringCopy());
      attachment->setMediaFlag(static_cast<std::int32_t>(mediaType.integer()));
      resolveFiles();
      break;
  }
  feed.forgetRecord();
  setAttachment(std::move(attachment));
  return true;
}

// --- IOSWeChatSessionItem ---

void IOSWeChatSessionItem::initWithDictionary(const json::Value& record, bool parseDeleted) {
  WeChatFeed feed;
  feed.parseDeleted = parseDeleted;
  initWithDictionary(record, feed, false);
}

void IOSWeChatSessionItem::initWithDictionary(const json::Value& record, WeChatFeed& feed,
                                              bool collect) {
  IOSBaseSessionItem::initWithDictionary(record);
  auto [isGroup, headBackup, headImage, id, name, members, fileList] = record.fields(
      {"is_group", "head_backup", "head_img", "id", "name", "members", "msg_file_list"});
  setIsGroup(isGroup.integer() == 1);
  if (headBackup.isString()) setImagePath(headBackup.stringCopy());
  setIdentifier(id.stringCopy());
  setName(name.stringCopy());

  MemberList list;
  for (json::View entry : members.elements()) {
    if (!entry.isObject()) continue;
    auto member = makeItem<IOSMemberItem>();
    auto [memberId, memberName] = entry.fields({"id", "name"});
    member->setIdentifier(memberId.stringCopy());
    member->setName(memberName.stringCopy());
    list.push_back(std::move(member));
  }
  setMembers(std::move(list));

  if (collect) feed.collectPicture(imagePath(), headImage.stringCopy());

  MessageFileRules rules;
  rules.factory = messageFactory<IOSWeChatSingleItem>();
  rules.keep = keepRule<IOSWeChatSingleItem>([this, &feed](IOSWeChatSingleItem& message) {
    if (message.flag() != 0 && !message.buildAttachment(feed)) return false;
    // In a one-to-one conversation the other side is the conversation itself.
    if (!this->isGroup() && message.from().empty()) message.setFrom(this->name());
    return true;
  });
  rules.parseDeleted = feed.parseDeleted;
  rules.listKey = "content";
  if (collect) rules.eachRecord = [&feed](json::View message) { feed.collectRecord(message); };

  // Every file's messages are kept, then the inline ones.
  MessageList messages;
  forEachMessageFile(fileList, [&](const json::Value& document) {
    if (std::optional<MessageList> found = messagesOfDocument(document, *this, rules)) {
      messages.insert(messages.end(), std::make_move_iterator(found->begin()),
                      std::make_move_iterator(found->end()));
    }
  });
  rules.factory = [](const json::Value& message) -> MessagePtr {
    auto item = makeItem<IOSWeChatSingleItem>();
    item->initWithInlineDictionary(message);
    return item;
  };
  rules.listKey = "contents";
  rules.eachRecord = nullptr;
  if (std::optional<MessageList> found = messagesOfDocument(record, *this, rules)) {
    messages.insert(messages.end(), std::make_move_iterator(found->begin()),
                    std::make_move_iterator(found->end()));
  }
  feed.forgetRecord();
  sortBySendDate(messages);
  setContents(std::move(messages));
}

const ImagePtr& IOSWeChatSessionItem::image() const {
  if (!IOSBaseSessionItem::image() && !imageTried_) {
    imageTried_ = true;
    if (!isBackupFile(imagePath())) return IOSBaseSessionItem::image();
    const_cast<IOSWeChatSessionItem*>(this)->setImage(Image::imageWithContentsOfFile(imagePath()));
  }
  return IOSBaseSessionItem::image();
}

// --- IOSWeChatContactItem ---

void IOSWeChatContactItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [id, name, alias, head] = record.fields({"id", "name", "alias_name", "head_backup"});
  identifier_ = id.stringCopy();
  name_ = name.stringCopy();
  aliasName_ = alias.stringCopy();
  imagePath_ = head.stringCopy();
}

const std::string& IOSWeChatContactItem::displayName() const {
  if (!name_.empty()) return name_;
  return aliasName_.empty() ? identifier_ : aliasName_;
}

const ImagePtr& IOSWeChatContactItem::image() const {
  if (!image_ && isBackupFile(imagePath_)) image_ = Image::imageWithContentsOfFile(imagePath_);
  return image_;
}

void IOSWeChatContactItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("identifier", identifier_);
  visitor.field("name", name_);
  visitor.field("aliasName", aliasName_);
  visitor.field("displayName", displayName());
  visitor.field("imagePath", imagePath_);
  visitor.field("image", image());
}

// --- IOSWeChatAccountItem ---

void IOSWeChatAccountItem::initWithDictionary(const json::Value& record, bool parseDeleted) {
  WeChatFeed feed;
  feed.parseDeleted = parseDeleted;
  initWithDictionary(record, feed);
}

void IOSWeChatAccountItem::initWithDictionary(const json::Value& record, WeChatFeed& feed) {
  IOSAccountItem::initWithDictionary(record);
  auto [phone, wxId, wxName, chats, subscriptions, friendFile] = record.fields(
      {"phone", "wx_id", "wx_name", "ChatSessions", "SubscribeSessions", "friend_list_file"});
  setPhoneNumber(phone.stringCopy());
  setAccount(wxId.stringCopy());
  setName(wxName.stringCopy());

  SessionList sessions;
  // Only chat conversations name files for the attachment lists.
  for (auto [list, collect] : {std::pair{chats, true}, std::pair{subscriptions, false}}) {
    for (json::View entry : list.elements()) {
      if (feed.stopped()) break;
      if (!entry.isObject()) continue;
      auto session = makeItem<IOSWeChatSessionItem>();
      session->initWithDictionary(record.sub(entry), feed, collect);
      sessions.push_back(std::move(session));
    }
  }
  if (!sessions.empty()) setItems(std::move(sessions));

  if (std::string path = friendFile.stringCopy(); exists(path)) readFriendList(path);
  setDisplayAccount(makeDisplayAccount());
}

void IOSWeChatAccountItem::readFriendList(const std::string& path) {
  RunLog::write(">>>WeChat Contacts Parser -- - - - ");
  std::optional<std::string> text = readBackupFile(path);
  if (!text || text->empty()) {
    RunLog::write("Data is Null or Empty!");
    return;
  }
  std::string error;
  json::Value document = json::parse(std::move(*text), &error);
  if (!document.present()) {
    SystemLog::write("ERROR: {}", error);
    return;
  }
  if (document.size() == 0) {
    RunLog::write("Data is Null or Empty!");
    return;
  }
  ItemList friends;
  for (json::View entry : document["FriendList"].elements()) {
    if (!entry.isObject()) continue;
    friends.push_back(IOSBaseItem::itemWithDictionary<IOSWeChatContactItem>(document.sub(entry)));
  }
  if (friends.empty()) {
    RunLog::write("FriendList is Null or Empty!");
    return;
  }
  setContacts(std::move(friends));
}

std::string IOSWeChatAccountItem::makeDisplayAccount() const {
  if (!name().empty()) {
    if (!phoneNumber().empty()) return name() + "-" + phoneNumber();
    if (!account().empty()) return name() + "-" + account();
    return name();
  }
  if (!phoneNumber().empty()) return phoneNumber();
  if (!account().empty()) return account();
  return rawData()["user_md5"].stringCopy();
}

// --- IOSWeChatParser ---

IOSWeChatParser::IOSWeChatParser() : feed_(std::make_unique<WeChatFeed>()) {}
IOSWeChatParser::~IOSWeChatParser() = default;

std::shared_ptr<IOSWeChatParser> IOSWeChatParser::parserWithJSONData(JSONData data,
                                                                     bool parseDeleted,
                                                                     bool deviceBackup) {
  auto parser = std::make_shared<IOSWeChatParser>();
  parser->setDeviceBackup(deviceBackup);
  parser->setParseDeleted(parseDeleted);
  parser->addJSONData(data);
  return parser;
}

void IOSWeChatParser::addJSONData(JSONData data) {
  if (!data) return;  // nothing new: the last feed must not be read twice
  IOSBaseParser::addJSONData(data);
  if (!rawData().isObject()) return;
  feed_->parseDeleted = parseDeleted();
  feed_->deviceBackup = deviceBackup();
  feed_->attachments = &attachments();
  feed_->parser = this;
  const json::View users = rawData()["wechat_users"];
  std::vector<std::string> files;
  for (json::View user : users.elements()) {
    if (!user.isObject()) continue;
    messageFilePaths(user["ChatSessions"], files);
    messageFilePaths(user["SubscribeSessions"], files);
  }
  // The attachment tests look at each record's media files and thumbnails, in both places.
  MessageFileReadAhead readAhead(
      std::move(files),
      {"content", {"media_backup", "other_media_backup", "thumb_backup", "other_thumb_backup"}});
  for (json::View entry : users.elements()) {
    if (isStopParser()) break;
    if (!entry.isObject()) continue;
    auto account = makeItem<IOSWeChatAccountItem>();
    account->initWithDictionary(rawData().sub(entry), *feed_);
    // The display text shows the alias, never the raw identifier.
    aliases_.apply(*account);
    account->setDisplayAccount(account->makeDisplayAccount());
    items().push_back(std::move(account));
  }
}

}  // namespace dataparser
