// Message payloads: the small value objects that hang on an attachment when a message carries
// structured content instead of (or beside) a file: a money transfer or red packet, a sticker, a
// location, a contact card, a subscription article, a shared link, a call record, a voice note
// or a video.
//
// They are plain values (not items): no rawData, no deletion state. Every string field keeps its
// own copy. The parsers fill them through the setters; the attachment holds each one through a
// std::shared_ptr (an empty pointer means "no such payload").
//
// `strDuration` of the timed payloads is computed on first read from `duration` truncated to
// whole seconds and then kept; `setStrDuration` overrides it.
//
// Thread safety: built on one thread; afterwards read from one thread at a time (the lazy
// `strDuration` fills without locking).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dataparser/model/describable.h"

namespace dataparser {

class MoneyItem : public Describable {
 public:
  const std::string& text() const { return text_; }
  void setText(std::string text) { text_ = std::move(text); }
  const std::string& money() const { return money_; }
  void setMoney(std::string money) { money_ = std::move(money); }
  std::uint64_t status() const { return status_; }
  void setStatus(std::uint64_t status) { status_ = status; }
  const std::string& strStatus() const { return strStatus_; }
  void setStrStatus(std::string strStatus) { strStatus_ = std::move(strStatus); }

  std::string_view className() const override { return "MoneyItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string text_;
  std::string money_;
  std::uint64_t status_ = 0;
  std::string strStatus_;
};

class EmojiItem : public Describable {
 public:
  const std::string& url() const { return url_; }
  void setUrl(std::string url) { url_ = std::move(url); }

  std::string_view className() const override { return "EmojiItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string url_;
};

class LocationItem : public Describable {
 public:
  const std::string& localInfo() const { return localInfo_; }
  void setLocalInfo(std::string localInfo) { localInfo_ = std::move(localInfo); }
  const std::string& domain() const { return domain_; }
  void setDomain(std::string domain) { domain_ = std::move(domain); }
  const std::string& thumbPath() const { return thumbPath_; }
  void setThumbPath(std::string thumbPath) { thumbPath_ = std::move(thumbPath); }

  std::string_view className() const override { return "LocationItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string localInfo_;
  std::string domain_;
  std::string thumbPath_;
};

class ContactItem : public Describable {
 public:
  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  const std::string& phone() const { return phone_; }
  void setPhone(std::string phone) { phone_ = std::move(phone); }
  const std::string& vcf() const { return vcf_; }
  void setVcf(std::string vcf) { vcf_ = std::move(vcf); }

  std::string_view className() const override { return "ContactItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string name_;
  std::string phone_;
  std::string vcf_;
};

class SubscribeNewsItem : public Describable {
 public:
  const std::string& title() const { return title_; }
  void setTitle(std::string title) { title_ = std::move(title); }
  const std::string& subtitle() const { return subtitle_; }
  void setSubtitle(std::string subtitle) { subtitle_ = std::move(subtitle); }

  std::string_view className() const override { return "SubscribeNewsItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string title_;
  std::string subtitle_;
};

class LinkItem : public Describable {
 public:
  const std::string& title() const { return title_; }
  void setTitle(std::string title) { title_ = std::move(title); }
  const std::string& summary() const { return summary_; }
  void setSummary(std::string summary) { summary_ = std::move(summary); }
  const std::string& text() const { return text_; }
  void setText(std::string text) { text_ = std::move(text); }
  const std::string& url() const { return url_; }
  void setUrl(std::string url) { url_ = std::move(url); }
  const std::string& thumbPath() const { return thumbPath_; }
  void setThumbPath(std::string thumbPath) { thumbPath_ = std::move(thumbPath); }

  std::string_view className() const override { return "LinkItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string title_;
  std::string summary_;
  std::string text_;
  std::string url_;
  std::string thumbPath_;
};

// The shared part of the payloads that last a while: `duration` in seconds and its display
// text. Not used on its own.
class TimedPayload : public Describable {
 public:
  float duration() const { return duration_; }
  void setDuration(float duration) { duration_ = duration; }
  // formattedDurationTime of `duration` truncated towards zero; kept once computed.
  const std::string& strDuration() const;
  void setStrDuration(std::string strDuration) { strDuration_ = std::move(strDuration); }

  void describe(FieldVisitor& visitor) const override;

 private:
  float duration_ = 0;
  mutable std::optional<std::string> strDuration_;
};

class CallDurationItem : public TimedPayload {
 public:
  std::uint64_t callHistoryType() const { return callHistoryType_; }
  void setCallHistoryType(std::uint64_t type) { callHistoryType_ = type; }
  const std::string& strCallHistoryType() const { return strCallHistoryType_; }
  void setStrCallHistoryType(std::string text) { strCallHistoryType_ = std::move(text); }

  std::string_view className() const override { return "CallDurationItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::uint64_t callHistoryType_ = 0;
  std::string strCallHistoryType_;
};

class VoiceItem : public TimedPayload {
 public:
  std::string_view className() const override { return "VoiceItem"; }
};

class VideoItem : public TimedPayload {
 public:
  std::string_view className() const override { return "VideoItem"; }
};

}  // namespace dataparser
