// Reading a conversation's message files, the part every chat parser shares, and the account
// alias numbering of the apps that have accounts.
//
// A conversation record names its message files in "msg_file_list". For each path, in order, at
// which a file exists, the file is decoded (a decoding error goes to the system log as
// ">>> ERROR: {error}"; a missing or unreadable file is skipped silently). When the document is
// an object with a list under "messages", each element that is an object becomes a message of
// the app's class, built by the rules' factory from a handle that shares the file's document
// (an app may first look at every record through the rules' `eachRecord`).
// Then, per message, in this order:
//   1. a deleted message is dropped unless `parseDeleted` is on;
//   2. a received message of a one-to-one conversation takes the conversation's `image`;
//   3. the app's keep rule finishes the message (sender, attachment ...) and says whether it
//      stays;
//   4. a kept message for which the app's front rule holds goes to the front of the file's list
//      (a group-created notice), every other one to its end.
// An app that also needs every decoded file (to collect attachments of all files, not only of
// the last one) gives a document hook; it sees each file once, before its messages are read.
// The kept messages are sorted oldest first (a stable sort on `sendDate` alone; messages
// without a date come first) and become the conversation's `contents`. Every further file with
// a list replaces the list of the file before it: the last such file wins, on purpose.
//
//   MessageFileRules rules;
//   rules.factory = messageFactory<IOSKikSingleItem>();
//   rules.keep = keepRule<IOSKikSingleItem>([](IOSKikSingleItem& m) { return !m.text().empty(); });
//   rules.parseDeleted = parseDeleted;
//   readMessageFiles(*this, rawData()["msg_file_list"], rules);
//
// The lower-level pieces (forEachMessageFile, messagesOfDocument, sortBySendDate) are public for
// parsers that walk the same files for their attachments or gather messages across files.
//
// A parser that walks many conversations names all their message files up front with a
// MessageFileReadAhead on its stack: while it lives, the files decode on a helper thread ahead of
// the conversations being built, and forEachMessageFile takes them from there. Everything else
// is as without it (the same documents, order and log lines, written on the reading thread); a
// file asked for out of the announced order is decoded on the spot.
//
// Thread safety: the functions keep no state but the thread's current read-ahead; the rules'
// callables run on the calling thread. AccountAliases is not locked; one parser uses it on one
// thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dataparser/model/conversation.h"
#include "dataparser/util/json.h"

namespace dataparser::json {
class FileReadAhead;
}

namespace dataparser {

// Builds one message from one record (an object sharing its file's document).
using MessageFactory = std::function<MessagePtr(const json::Value& record)>;
// Finishes a message and says whether it is kept.
using MessageKeepRule = std::function<bool(IOSBaseSingleItem& message)>;
// Says whether a kept message goes to the front of its file's list.
using MessageFrontRule = std::function<bool(const IOSBaseSingleItem& message)>;
// Sees every decoded message file, in list order.
using MessageDocumentHook = std::function<void(const json::Value& document)>;
// Sees one record of a message list.
using MessageRecordVisitor = std::function<void(json::View record)>;

struct MessageFileRules {
  // Makes the app's message item; when empty, a plain IOSBaseSingleItem is made.
  MessageFactory factory;
  // When empty, every message that passed the deletion test is kept.
  MessageKeepRule keep;
  // When empty, every kept message is appended.
  MessageFrontRule front;
  // When set, called with each decoded file before its messages are read, for parsers that
  // gather more from the same files (their attachment lists) without decoding them again.
  MessageDocumentHook eachDocument;
  bool parseDeleted = true;
  // The key of the message list in a file.
  std::string_view listKey = "messages";
  // True: only a JSON list under `listKey` makes a file count. False: any value that is not
  // null does, and one that is not a list gives an empty message list.
  bool listRequired = true;
  // When set, sees every object of the list, in order, before its message is made: also the
  // records that are then dropped (deleted, refused by the keep rule). For apps that gather
  // something from every record of a file, such as the media files it names.
  MessageRecordVisitor eachRecord;
};

// A factory making items of class Message through the base factory.
template <class Message>
MessageFactory messageFactory() {
  return [](const json::Value& record) -> MessagePtr {
    return IOSBaseItem::itemWithDictionary<Message>(record);
  };
}

// A keep rule written for the app's own class. Only valid with a factory that makes Message.
template <class Message, class Rule>
MessageKeepRule keepRule(Rule rule) {
  return [rule = std::move(rule)](IOSBaseSingleItem& message) -> bool {
    return rule(static_cast<Message&>(message));
  };
}

// Decodes every path of `fileList` (a JSON list; anything else names no file) at which a file
// exists and hands each decoded document to `visit`, in list order. Entries that are not
// strings, folders, missing and unreadable files are skipped; a file that does not decode logs
// ">>> ERROR: {error}" to the system log and is skipped.
void forEachMessageFile(json::View fileList,
                        const std::function<void(const json::Value& document)>& visit);

// The messages of one decoded file, in file order, after the deletion test, the conversation
// picture and the keep rule; nothing when the document has no message list.
std::optional<MessageList> messagesOfDocument(const json::Value& document,
                                              const IOSBaseSessionItem& session,
                                              const MessageFileRules& rules);

// Oldest first; stable; compares `sendDate` only; messages without a date first.
void sortBySendDate(MessageList& messages);

// Sets `session.contents` from the last file of `fileList` that has a message list (sorted);
// leaves it unchanged when no file has one.
void readMessageFiles(IOSBaseSessionItem& session, json::View fileList,
                      const MessageFileRules& rules);

// The files a parser will test in each message file: those named under `fileKeys` by the objects
// of the list under `listKey`. The read-ahead looks them up with the file, and the parser's tests
// of those paths (backupFileExists) are answered from there.
struct MessageFileNames {
  std::string_view listKey = "messages";
  std::vector<std::string_view> fileKeys;
};

// The message files of a parser's conversations, decoding ahead of it on a helper thread. Made
// and destroyed on the thread that reads the conversations; read-aheads nest (the newest serves).
// Destroying it stops the helper after the file it is decoding.
class MessageFileReadAhead {
 public:
  // `paths` as messageFilePaths gathers them, in the order the parser reads the files.
  explicit MessageFileReadAhead(std::vector<std::string> paths,
                                MessageFileNames named = MessageFileNames());
  ~MessageFileReadAhead();
  MessageFileReadAhead(const MessageFileReadAhead&) = delete;
  MessageFileReadAhead& operator=(const MessageFileReadAhead&) = delete;

 private:
  friend void forEachMessageFile(json::View, const std::function<void(const json::Value&)>&);
  std::unique_ptr<json::FileReadAhead> ahead_;
  MessageFileReadAhead* outer_;
};

// Appends the entries of the file list under `listKey` of every object of `sessions` (a JSON
// list), in order, as forEachMessageFile reads them.
void messageFilePaths(json::View sessions, std::vector<std::string>& paths,
                      std::string_view listKey = "msg_file_list");

// Display aliases for account identifiers: "Account1", "Account2", ... in order of first
// appearance, so the user never sees the raw identifier. Keep one per parser so that the
// numbering runs across all of its calls.
class AccountAliases {
 public:
  // The alias of a non-empty identifier (made on first sight); "" for "".
  std::string aliasFor(const std::string& account);
  // Replaces the item's non-empty `account` by its alias.
  void apply(IOSAccountItem& item);
  std::size_t size() const { return aliases_.size(); }

 private:
  std::unordered_map<std::string, std::string> aliases_;
};

}  // namespace dataparser
