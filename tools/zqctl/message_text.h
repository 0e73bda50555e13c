// Messages on the command line and on standard output, in one form both
// ways: words "NAME=VALUE" for fields ("NAME:TYPE=VALUE" with a type code
// for a number or hex bytes "b"), and after "--" a body format with its
// values. What listen prints, quoted for a POSIX shell, pastes into post.
#pragma once

#include <string>
#include <vector>

#include "cli.h"
#include "zqsys/zqmsg.h"

namespace zqctl {

// One message reference for a scope: a new empty message, or one taken
// over (null for an out argument to fill).
class Message {
 public:
  Message();
  explicit Message(HZQMSG taken) : handle_(taken) {}
  ~Message() { ZqMsgFreeMessage(handle_); }
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;
  HZQMSG Get() const { return handle_; }
  HZQMSG* Out() { return &handle_; }
  // Hands the reference to the caller.
  HZQMSG Detach() {
    HZQMSG taken = handle_;
    handle_ = nullptr;
    return taken;
  }

 private:
  HZQMSG handle_ = nullptr;
};

// Sets the fields of `words` and, with a tail, the body composed from its
// first word (the format) and the values after it.
void FillMessage(HZQMSG message, const std::vector<std::string>& words,
                 const std::vector<std::string>* body);

// The message as words; the body as "-- FORMAT VALUES..." when
// `bodyFormat` is given, else as the field Zq_Body.
std::vector<std::string> WordsOf(HZQMSG message, const std::string& bodyFormat);
// The words joined, each quoted for a shell where it needs it.
std::string LineOf(const std::vector<std::string>& words);
// The message as a JSON object: its system fields, user fields and words.
void JsonOf(Json& json, HZQMSG message, const std::string& bodyFormat);

// A text field, "" when it is absent.
std::string TextField(HZQMSG message, const char* name);

}  // namespace zqctl
