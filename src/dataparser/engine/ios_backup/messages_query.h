// The one query that reads the messages of sms.db, shared by the messages reader and the
// benchmark that measures the bare database pass under it.
#pragma once

#include <string>
#include <string_view>

namespace dataparser {

class SqliteDatabase;

// Result columns of `messageQuery`.
enum MessageColumn : int {
  kMessageChat,
  kMessageID,
  kMessageText,
  kMessageAttributedBody,
  kMessageSubject,
  kMessageService,
  kMessageDate,
  kMessageIsFromMe,
  kMessageError,
  kMessageHandle,
  kMessageCallerID,
  kMessageAccount,
};

// Every message joined to its chat through `joinTable` ("chat_message_join", or
// "chat_recoverable_message_join" for Recently Deleted) and to its sender's handle, in chat order
// then message order. Columns the database lacks read as NULL.
std::string messageQuery(SqliteDatabase& db, std::string_view joinTable);

}  // namespace dataparser
