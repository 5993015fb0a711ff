#include "dataparser/model/message_files.h"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/json_files.h"
#include "dataparser/util/run_log.h"

namespace dataparser {

namespace {

// Only regular files inside the backup are opened (a pipe would hold the scan up); an unreadable
// one is skipped like a missing one.
bool isMessageFile(const std::string& path) {
  return isBackupFile(path) && ::access(path.c_str(), R_OK) == 0;
}

// How far the helper may run ahead of the conversations being built, in files.
constexpr std::size_t kReadAheadFiles = 8;
// How far past the expected file a request may be found in the announced order.
constexpr std::size_t kReadAheadWindow = 16;

thread_local MessageFileReadAhead* currentReadAhead = nullptr;

}  // namespace

MessageFileReadAhead::MessageFileReadAhead(std::vector<std::string> paths, MessageFileNames named)
    : outer_(currentReadAhead) {
  json::FileReadAhead::Preparation prepare;
  if (!named.fileKeys.empty()) {
    prepare = [named = std::move(named)](json::DecodedFile& file) {
      std::vector<json::View> found(named.fileKeys.size());
      for (json::View record : file.document[named.listKey].elements()) {
        std::fill(found.begin(), found.end(), json::View());
        record.fields(named.fileKeys.data(), found.data(), found.size());
        for (json::View value : found) {
          if (std::string_view path = value.string(); !path.empty()) file.files.lookUp(path);
        }
      }
    };
  }
  ahead_ = std::make_unique<json::FileReadAhead>(std::move(paths), isMessageFile, kReadAheadFiles,
                                                 std::move(prepare));
  currentReadAhead = this;
}

MessageFileReadAhead::~MessageFileReadAhead() {
  currentReadAhead = outer_;
}

void messageFilePaths(json::View sessions, std::vector<std::string>& paths,
                      std::string_view listKey) {
  for (json::View session : sessions.elements()) {
    if (!session.isObject()) continue;
    for (json::View entry : session[listKey].elements())
      paths.push_back(entry.stringCopy());
  }
}

void forEachMessageFile(json::View fileList,
                        const std::function<void(const json::Value& document)>& visit) {
  for (json::View entry : fileList.elements()) {
    const std::string path = entry.stringCopy();
    std::optional<json::DecodedFile> decoded;
    // Take the file from the read-ahead when it is (nearly) the one expected; files announced
    // but passed over are dropped.
    if (MessageFileReadAhead* readAhead = currentReadAhead) {
      json::FileReadAhead& ahead = *readAhead->ahead_;
      const std::vector<std::string>& paths = ahead.paths();
      const std::size_t end = std::min(paths.size(), ahead.next() + kReadAheadWindow);
      for (std::size_t i = ahead.next(); i < end; ++i) {
        if (paths[i] != path) continue;
        while (ahead.next() < i)
          ahead.take();
        decoded = ahead.take();
        break;
      }
    }
    if (!decoded) decoded = json::decodeFile(path, isMessageFile);
    if (decoded->refused) continue;
    if (decoded->mended) json::logMendedFile(path);
    if (!decoded->document.present()) {
      SystemLog::write(">>> ERROR: {}", decoded->error);
      continue;
    }
    KnownBackupFiles::Scope known(decoded->files.empty() ? nullptr : &decoded->files);
    visit(decoded->document);
  }
}

std::optional<MessageList> messagesOfDocument(const json::Value& document,
                                              const IOSBaseSessionItem& session,
                                              const MessageFileRules& rules) {
  if (!document.isObject()) return std::nullopt;
  const json::View list = document[rules.listKey];
  if (rules.listRequired ? !list.isArray() : !list.present()) return std::nullopt;

  MessageList messages;
  messages.reserve(list.size());
  for (json::View record : list.elements()) {
    if (!record.isObject()) continue;
    if (rules.eachRecord) rules.eachRecord(record);
    const json::Value shared = document.sub(record);
    MessagePtr message = rules.factory ? rules.factory(shared)
                                       : IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(shared);
    if (!message) continue;
    if (!rules.parseDeleted && message->isDeleted()) continue;
    if (message->isReceived() && !session.isGroup()) message->setImage(session.image());
    if (rules.keep && !rules.keep(*message)) continue;
    if (rules.front && rules.front(*message)) {
      messages.insert(messages.begin(), std::move(message));
    } else {
      messages.push_back(std::move(message));
    }
  }
  return messages;
}

void sortBySendDate(MessageList& messages) {
  // std::optional orders "no date" before every date, which keeps the order strict and weak.
  std::stable_sort(messages.begin(), messages.end(), [](const MessagePtr& a, const MessagePtr& b) {
    return a->sendDate() < b->sendDate();
  });
}

void readMessageFiles(IOSBaseSessionItem& session, json::View fileList,
                      const MessageFileRules& rules) {
  forEachMessageFile(fileList, [&](const json::Value& document) {
    if (rules.eachDocument) rules.eachDocument(document);
    std::optional<MessageList> messages = messagesOfDocument(document, session, rules);
    if (!messages) return;
    sortBySendDate(*messages);
    // Each file with a list replaces the one before: only the last file's messages remain.
    session.setContents(std::move(*messages));
  });
}

std::string AccountAliases::aliasFor(const std::string& account) {
  if (account.empty()) return {};
  auto found = aliases_.find(account);
  if (found != aliases_.end()) return found->second;
  std::string alias = fmt::format("Account{}", aliases_.size() + 1);
  aliases_.emplace(account, alias);
  return alias;
}

void AccountAliases::apply(IOSAccountItem& item) {
  if (!item.account().empty()) item.setAccount(aliasFor(item.account()));
}

}  // namespace dataparser
