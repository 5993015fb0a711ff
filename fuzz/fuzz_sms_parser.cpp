// Fuzzes the SMS and iMessage parser (and the base parser's factories and addJSONData) the way
// a scan feeds it: the fuzz input becomes a message file on disk, and an engine block names it.
//
// Input layout: the first byte holds switches, the rest is the message file's text. Every
// "{{ROOT}}" in it becomes the fuzz folder, so seeds can name the picture kept there
// ("{{ROOT}}/pictures/pixel.png"). The switches pick parseDeleted and deviceBackup, and whether
// the block lists the file twice. The file's text is also fed to the parser as a block.
//
// Checked on every input:
//   - every conversation kept has messages, a name, and messages sorted oldest first;
//   - without parseDeleted no kept conversation is deleted;
//   - every kept message has words or an attachment;
//   - the parser's attachments are the conversations' attachments, in order;
//   - every field of every item reads without failing.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "dataparser/parsers/messaging/sms.h"
#include "dataparser/util/text.h"
#include "fuzz/harness.h"

namespace {

using dataparser::fuzz::check;
using dataparser::fuzz::FuzzEnvironment;
namespace dp = dataparser;

// A JSON string literal of a path made by the harness (no characters that need escaping but
// the two JSON itself reserves).
std::string quoted(std::string_view path) {
  std::string out = "\"";
  for (char c : path) {
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  out.push_back('"');
  return out;
}

void checkParser(const dp::IOSSMSParser& parser) {
  dp::ItemList attachments;
  for (const dp::ItemPtr& item : parser.items()) {
    const auto* session = dynamic_cast<const dp::IOSSMSSessionItem*>(item.get());
    check(session != nullptr, "items are SMS conversations");
    check(!session->contents().empty(), "a kept conversation has messages");
    check(!session->name().empty(), "a conversation always has a name");
    if (!parser.parseDeleted()) check(session->isDeleted() == 0, "deleted conversations dropped");
    const dp::MessageList& messages = session->contents();
    for (std::size_t i = 0; i < messages.size(); ++i) {
      if (i > 0) check(!(messages[i]->sendDate() < messages[i - 1]->sendDate()), "sorted");
      check(!messages[i]->text().empty() || messages[i]->attachment() != nullptr,
            "a kept message has words or an attachment");
    }
    dp::ItemList own = session->attachments();
    attachments.insert(attachments.end(), own.begin(), own.end());
    dp::fuzz::describeAll(*session);
  }
  check(attachments == parser.attachments(), "parser attachments are the conversations'");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  FuzzEnvironment::instance();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const FuzzEnvironment& environment = FuzzEnvironment::instance();
  const std::uint8_t switches = data[0];
  const bool parseDeleted = (switches & 1) != 0;
  const bool deviceBackup = (switches & 2) != 0;
  const bool listedTwice = (switches & 4) != 0;

  const std::string text = dp::stringByReplacingOccurrences(dp::fuzz::asText(data + 1, size - 1),
                                                            "{{ROOT}}", environment.root());
  const std::string file = environment.writeFile("sms/chats.json", text);

  // The block also names files that do not exist, a folder and a non-string, as engines do.
  std::string block = "{\"sms_file_path\": [" + quoted(file) + ", " +
                      quoted(environment.root() + "/sms/missing.json") + ", " +
                      quoted(environment.root() + "/sms") + ", 7, null";
  if (listedTwice) block += ", " + quoted(file);
  block += "]}";

  auto parser = dp::IOSSMSParser::parserWithJSONData(block, parseDeleted, deviceBackup);
  check(parser->rawData().isObject(), "the block decodes");
  checkParser(*parser);

  // The file's text as a block: mostly not what the parser expects, or not JSON at all.
  checkParser(*dp::IOSSMSParser::parserWithJSONData(text, parseDeleted, deviceBackup));
  auto base = dp::IOSSMSParser::parserWithJSONData(text, parseDeleted);
  check(base->className() == "IOSBaseParser", "the two-argument factory makes a base parser");
  base->addJSONData(text);
  base->addJSONData(std::nullopt);
  parser->addJSONData(text);
  check(dp::IOSSMSParser::parserWithJSONData(std::nullopt, false, false)->items().empty(),
        "no data, no items");
  return 0;
}
