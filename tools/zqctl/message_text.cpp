#include "message_text.h"

#include <cstdlib>
#include <cstring>

#include "zqsys/zqerr.h"
#include "zqsys/zqprintf.h"
#include "zqsys/zqtime.h"
#include "zqsys/zqtypes.h"

namespace zqctl {
namespace {

// The fields the block header holds, by name; the others are user fields.
bool IsHeaderField(const std::string& name) {
  return name == ZQMSG_FIELD_FROM || name == ZQMSG_FIELD_TO || name == ZQMSG_FIELD_CATEGORY ||
         name == ZQMSG_FIELD_TYPE || name == ZQMSG_FIELD_SENDID || name == ZQMSG_FIELD_REPLYID ||
         name == ZQMSG_FIELD_BODY;
}

// The default type of a field written without one.
std::string DefaultType(const std::string& name) {
  if (name == ZQMSG_FIELD_TYPE) return "u4";
  if (name == ZQMSG_FIELD_SENDID || name == ZQMSG_FIELD_REPLYID) return "u8";
  return "c";
}

// The width of a type code ("u4": 4); 0 for no code.
std::uint32_t WidthOf(const std::string& code) {
  std::uint32_t length = 0, width = 0;
  if (ZqSysGetNextType(code.c_str(), &length, &width, nullptr) != 0 || length != code.size()) {
    return 0;
  }
  return width;
}

// The little-endian bytes of an integer of `width` bytes.
std::string IntegerBytes(const std::string& text, char letter, std::uint32_t width) {
  std::int64_t value = 0;
  if (!ParseI64(text, value)) Usage("'" + text + "' is no integer");
  if (width < 8) {
    const std::int64_t span = std::int64_t{1} << (8 * width);
    const bool fits =
        letter == 'u' ? value >= 0 && value < span : value >= -span / 2 && value < span / 2;
    if (!fits) Usage("'" + text + "' does not fit " + letter + std::to_string(width));
  }
  std::string bytes(width, '\0');
  for (std::uint32_t i = 0; i < width; ++i)
    bytes[i] = static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i));
  return bytes;
}

// The bytes of a field value written as TYPE.
std::string FieldBytes(const std::string& type, const std::string& text) {
  if (type == "c") return text + '\0';
  std::string bytes;
  if (type == "b") {
    if (!BytesOfHex(text, bytes)) Usage("'" + text + "' is no hex byte string");
    return bytes;
  }
  if (type == "f") {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0') Usage("'" + text + "' is no number");
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
  }
  if (type.size() >= 2 && (type[0] == 'i' || type[0] == 'u')) {
    const std::uint32_t width = WidthOf(type);
    if (width == 1 || width == 2 || width == 4 || width == 8) {
      return IntegerBytes(text, type[0], width);
    }
  }
  Usage("field type '" + type + "' is none of c, b, f, i1..i8, u1..u8");
}

void SetField(HZQMSG message, const std::string& word) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos || equals == 0) Usage("'" + word + "' is no NAME=VALUE");
  std::string name = word.substr(0, equals);
  const std::string value = word.substr(equals + 1);
  std::string type = DefaultType(name);
  if (const std::size_t colon = name.find(':'); colon != std::string::npos) {
    type = name.substr(colon + 1);
    name.resize(colon);
  }
  if (name == ZQMSG_FIELD_BODY) {
    const std::string bytes = type == "c" ? value + '\0' : FieldBytes(type, value);
    Check(ZqMsgSetBody(message, bytes.data(), static_cast<std::uint32_t>(bytes.size())),
          "cannot set the body");
    return;
  }
  const std::string bytes = FieldBytes(type, value);
  Check(
      ZqMsgSetField(message, name.c_str(), bytes.data(), static_cast<std::uint32_t>(bytes.size())),
      "cannot set field " + name);
}

// The codes of a format, each with its width ("c25", "u4").
std::vector<std::string> CodesOf(const std::string& format) {
  std::vector<std::string> codes;
  for (std::size_t at = 0; at < format.size();) {
    std::uint32_t length = 0;
    if (ZqSysGetNextType(format.c_str() + at, &length, nullptr, nullptr) != 0 || length == 0) {
      Usage("'" + format + "' is no format string");
    }
    codes.push_back(format.substr(at, length));
    at += length;
  }
  return codes;
}

void ComposeValue(ZQCOMPOSECTX* body, const std::string& code, const std::string& text) {
  const char letter = code[0];
  std::uint32_t rc = ZQERR_COMMON_WRONG_ARGUMENTS;
  if (letter == 'c') {
    rc = ZqMsgCompose(body, code.c_str(), text.c_str());
  } else if (letter == 'a') {
    if (text.size() != 1) Usage("'" + text + "' is not one character");
    rc = ZqMsgCompose(body, code.c_str(), static_cast<int>(text[0]));
  } else if (letter == 'i' || letter == 'u') {
    std::int64_t value = 0;
    if (!ParseI64(text, value)) Usage("'" + text + "' is no integer");
    rc = code == "i8" || code == "u8"
             ? ZqMsgCompose(body, code.c_str(), static_cast<long long>(value))
             : ZqMsgCompose(body, code.c_str(), static_cast<int>(value));
  } else if (letter == 'f') {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0') Usage("'" + text + "' is no number");
    rc = ZqMsgCompose(body, code.c_str(), value);
  } else if (letter == 't') {
    // "null" is the NULL time, which no time text names.
    ZQTIME value;
    if (text != "null" && ZqTimeGetFromStr(&value, text.c_str()) != 0) {
      Usage("'" + text + "' is no time");
    }
    rc = ZqMsgCompose(body, code.c_str(), text == "null" ? nullptr : &value);
  } else if (letter == 'b') {
    std::string bytes;
    if (!BytesOfHex(text, bytes)) Usage("'" + text + "' is no hex byte string");
    rc = ZqMsgCompose(body, code.c_str(), bytes.data(), static_cast<std::uint32_t>(bytes.size()));
  } else {
    Usage("type '" + code + "' cannot be given on the command line");
  }
  Check(rc, "cannot compose '" + text + "' as " + code);
}

// One value of the body read by its code, as a word.
std::string ParseValue(ZQPARSECTX* body, const std::string& code) {
  const char letter = code[0];
  std::uint32_t rc = 0;
  std::string word;
  if (letter == 'c') {
    const char* text = nullptr;
    rc = ZqMsgParseGetPointer(body, code.c_str(), &text);
    if (text != nullptr) word = text;
  } else if (letter == 'b') {
    const void* bytes = nullptr;
    std::uint32_t size = 0;
    rc = ZqMsgParseGetPointer(body, code.c_str(), &bytes, &size);
    word = HexOf(bytes, bytes != nullptr ? size : 0);
  } else if (letter == 't') {
    ZQTIME value;
    rc = ZqMsgParseCopy(body, code.c_str(), &value);
    char text[40];
    ZqSysSNPrintf(text, sizeof text, "%.7t", &value);
    word = ZqTimeIsNULL(&value) != 0 ? "null" : text;
  } else if (letter == 'f') {
    double value = 0;
    rc = ZqMsgParseCopy(body, code.c_str(), &value);
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", value);
    word = text;
  } else if (letter == 'a' || letter == 'i' || letter == 'u') {
    const std::uint32_t width = letter == 'a' ? 1 : WidthOf(code);
    if (width != 1 && width != 2 && width != 4 && width != 8) {
      Usage("type '" + code + "' cannot be printed");
    }
    unsigned char bytes[8] = {};
    rc = ZqMsgParseCopy(body, code.c_str(), bytes);
    std::uint64_t value = 0;
    for (std::uint32_t i = 0; i < width; ++i)
      value |= std::uint64_t{bytes[i]} << (8 * i);
    if (letter == 'a') {
      word = std::string(1, static_cast<char>(value));
    } else if (letter == 'i' && width < 8 && (value >> (8 * width - 1)) != 0) {
      word = std::to_string(static_cast<std::int64_t>(value) - (std::int64_t{1} << (8 * width)));
    } else {
      word =
          letter == 'i' ? std::to_string(static_cast<std::int64_t>(value)) : std::to_string(value);
    }
  } else {
    Usage("type '" + code + "' cannot be printed");
  }
  Check(rc, "the body does not hold " + code);
  return word;
}

// Whether a value is a printable text with its NUL and no other.
bool IsText(const void* value, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(value);
  bool text = size != 0 && bytes[size - 1] == 0;
  for (std::size_t i = 0; text && i + 1 < size; ++i)
    text = bytes[i] >= 0x20 && bytes[i] != 0x7F;
  return text;
}

// A value as a field word: text when it is one, else hex bytes.
std::string FieldWord(const std::string& name, const void* value, std::size_t size) {
  if (IsText(value, size)) return name + "=" + static_cast<const char*>(value);
  return name + ":b=" + HexOf(value, size);
}

// What a message block holds, read through its stream form.
struct Parts {
  std::uint32_t type = 0;
  std::uint64_t sendId = 0, replyId = 0;
  std::string from, to, category;
  std::string body;
  std::vector<std::pair<std::string, std::string>> fields;
};

Parts PartsOf(HZQMSG message) {
  std::uint32_t size = 0;
  Check(ZqMsgGetMessageBlockSize(message, &size), "cannot size the message");
  std::string block(size, '\0');
  Check(ZqMsgSaveMessageToBlock(message, block.data(), &size), "cannot save the message");
  ZQPARSECTX parse;
  ZqMsgInitParse(&parse, block.data(), size);
  Parts parts;
  const char *signature = nullptr, *from = nullptr, *to = nullptr, *category = nullptr;
  const void* body = nullptr;
  std::uint32_t bodySize = 0, version = 0;
  Check(
      ZqMsgParseGetPointer(&parse, "cu4u4u8u8ccbc", &signature, &version, &parts.type,
                           &parts.sendId, &parts.replyId, &from, &to, &body, &bodySize, &category),
      "cannot read the message block");
  parts.from = from != nullptr ? from : "";
  parts.to = to != nullptr ? to : "";
  parts.category = category != nullptr ? category : "";
  if (body != nullptr) parts.body.assign(static_cast<const char*>(body), bodySize);
  for (;;) {
    const char* name = nullptr;
    const void* value = nullptr;
    std::uint32_t valueSize = 0;
    Check(ZqMsgParseGetPointer(&parse, "cb", &name, &value, &valueSize),
          "cannot read the message's fields");
    if (name == nullptr) break;
    parts.fields.emplace_back(
        name, std::string(static_cast<const char*>(value), value != nullptr ? valueSize : 0));
  }
  return parts;
}

}  // namespace

Message::Message() {
  Check(ZqMsgCreateMessage(&handle_), "cannot create a message");
}

void FillMessage(HZQMSG message, const std::vector<std::string>& words,
                 const std::vector<std::string>* body) {
  for (const std::string& word : words)
    SetField(message, word);
  if (body == nullptr) return;
  if (body->empty()) Usage("a body needs a format after --");
  const std::vector<std::string> codes = CodesOf((*body)[0]);
  if (codes.size() != body->size() - 1) {
    Usage("format '" + (*body)[0] + "' takes " + std::to_string(codes.size()) + " values, not " +
          std::to_string(body->size() - 1));
  }
  ZQCOMPOSECTX composed;
  ZqMsgInitCompose(&composed);
  try {
    for (std::size_t i = 0; i < codes.size(); ++i)
      ComposeValue(&composed, codes[i], (*body)[i + 1]);
  } catch (...) {
    ZqMsgFreeCompose(&composed);
    throw;
  }
  const std::uint32_t rc = ZqMsgSetBody(message, composed.buffer, composed.size);
  ZqMsgFreeCompose(&composed);
  Check(rc, "cannot set the body");
}

std::vector<std::string> WordsOf(HZQMSG message, const std::string& bodyFormat) {
  const Parts parts = PartsOf(message);
  std::vector<std::string> words;
  if (!parts.from.empty()) words.push_back(std::string(ZQMSG_FIELD_FROM) + "=" + parts.from);
  if (!parts.to.empty()) words.push_back(std::string(ZQMSG_FIELD_TO) + "=" + parts.to);
  if (!parts.category.empty()) {
    words.push_back(std::string(ZQMSG_FIELD_CATEGORY) + "=" + parts.category);
  }
  words.push_back(std::string(ZQMSG_FIELD_TYPE) + "=" + std::to_string(parts.type));
  if (parts.sendId != 0) {
    words.push_back(std::string(ZQMSG_FIELD_SENDID) + "=" + std::to_string(parts.sendId));
  }
  if (parts.replyId != 0) {
    words.push_back(std::string(ZQMSG_FIELD_REPLYID) + "=" + std::to_string(parts.replyId));
  }
  for (const auto& [name, value] : parts.fields) {
    if (!IsHeaderField(name)) words.push_back(FieldWord(name, value.data(), value.size()));
  }
  if (parts.body.empty()) return words;
  if (bodyFormat.empty()) {
    words.push_back(FieldWord(ZQMSG_FIELD_BODY, parts.body.data(), parts.body.size()));
    return words;
  }
  words.push_back("--");
  words.push_back(bodyFormat);
  ZQPARSECTX body;
  ZqMsgInitParse(&body, parts.body.data(), static_cast<std::uint32_t>(parts.body.size()));
  for (const std::string& code : CodesOf(bodyFormat))
    words.push_back(ParseValue(&body, code));
  return words;
}

std::string LineOf(const std::vector<std::string>& words) {
  static const char kPlain[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+=:,./-";
  std::string line;
  for (const std::string& word : words) {
    if (!line.empty()) line += ' ';
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) {
      line += word;
      continue;
    }
    // NAME=VALUE keeps its name bare and quotes the value alone.
    const std::size_t equals = word.find('=');
    std::size_t start = 0;
    if (equals != std::string::npos && word.find_first_not_of(kPlain) > equals) {
      start = equals + 1;
      line.append(word, 0, start);
    }
    line += '\'';
    for (std::size_t i = start; i < word.size(); ++i) {
      if (word[i] == '\'') {
        line += "'\\''";
      } else {
        line += word[i];
      }
    }
    line += '\'';
  }
  return line;
}

void JsonOf(Json& json, HZQMSG message, const std::string& bodyFormat) {
  const Parts parts = PartsOf(message);
  json.Open('{')
      .Member("from", parts.from)
      .Member("to", parts.to)
      .Member("category", parts.category)
      .Member("type", parts.type)
      .Member("sendId", parts.sendId)
      .Member("replyId", parts.replyId)
      .Key("fields")
      .Open('{');
  // A text field as a string, any other as {"hex": "..."}.
  for (const auto& [name, value] : parts.fields) {
    if (IsHeaderField(name)) continue;
    if (IsText(value.data(), value.size())) {
      json.Member(name, value.c_str());
    } else {
      json.Key(name).Open('{').Member("hex", HexOf(value.data(), value.size())).Close('}');
    }
  }
  json.Close('}').Member("bodyHex", HexOf(parts.body.data(), parts.body.size()));
  json.Key("words").Open('[');
  for (const std::string& word : WordsOf(message, bodyFormat))
    json.String(word);
  json.Close(']').Close('}');
}

std::string TextField(HZQMSG message, const char* name) {
  const void* value = nullptr;
  std::uint32_t size = 0;
  if (ZqMsgGetBinaryField(message, name, &value, &size) != 0 || size == 0) return {};
  const auto* text = static_cast<const char*>(value);
  return std::string(text, strnlen(text, size));
}

}  // namespace zqctl
