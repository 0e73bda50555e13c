// Commands that need nothing but the library: result-code texts and time
// values.
#include <cctype>
#include <cstdio>
#include <string>

#include "cli.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqprintf.h"
#include "zqsys/zqtime.h"

namespace zqctl {
namespace {

// ---- err ----

constexpr std::uint32_t kCategories = 22;
constexpr std::uint32_t kIndexes = 0x1000;

// A code the library has a text of its own for: not the tag of a category
// ("<DB>") and not "No description".
bool IsKnown(const char* text) {
  return text[0] != '<' && std::string(text) != "No description";
}

std::string Lower(std::string text) {
  for (char& c : text)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

void AddCode(Json& json, std::uint32_t code, const char* text) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%X", code);
  json.Open('{').Member("code", code).Member("hex", hex).Member("text", text).Close('}');
}

int RunErr(const Args& args) {
  args.Expect(1, 1);
  const std::string& query = args.Operand(0, "CODE or TEXT");
  std::uint32_t code = 0;
  Json json;
  json.Open('[');
  std::string lines;
  const auto add = [&](std::uint32_t found, const char* text) {
    AddCode(json, found, text);
    char line[160];
    std::snprintf(line, sizeof line, "0x%-6X %-7u %s\n", found, found, text);
    lines += line;
  };
  if (ParseU32(query, code)) {
    const char* text = ZqErrGetDescrStr(code);
    if (!IsKnown(text)) {
      throw Failure(query + " is no result code (" + text + ")", ZQERR_COMMON_WRONG_ARGUMENTS);
    }
    add(code, text);
  } else {
    // The reverse: every code whose text holds the query, case aside.
    const std::string wanted = Lower(query);
    for (std::uint32_t category = 0; category < kCategories; ++category) {
      for (std::uint32_t index = 0; index < kIndexes; ++index) {
        const std::uint32_t candidate = category << 12 | index;
        const char* text = ZqErrGetDescrStr(candidate);
        if (IsKnown(text) && Lower(text).find(wanted) != std::string::npos) add(candidate, text);
      }
    }
    if (lines.empty()) {
      throw Failure("no result code text holds '" + query + "'", ZQERR_COMMON_WRONG_ARGUMENTS);
    }
  }
  json.Close(']');
  if (args.Json()) {
    PrintLine(json.Text());
  } else {
    lines.pop_back();
    PrintLine(lines);
  }
  return 0;
}

// ---- time ----

const struct {
  const char* names[3];
  std::uint32_t unit;
} kUnits[] = {
    {{"ms", "millisecond", "milliseconds"}, ZQTIME_UNIT_MILLISECOND},
    {{"s", "second", "seconds"}, ZQTIME_UNIT_SECOND},
    {{"min", "minute", "minutes"}, ZQTIME_UNIT_MINUTE},
    {{"h", "hour", "hours"}, ZQTIME_UNIT_HOUR},
    {{"d", "day", "days"}, ZQTIME_UNIT_DAY},
    {{"mon", "month", "months"}, ZQTIME_UNIT_MONTH},
};

std::uint32_t UnitOf(const std::string& name) {
  for (const auto& unit : kUnits) {
    for (const char* known : unit.names) {
      if (name == known) return unit.unit;
    }
  }
  Usage("unknown unit '" + name + "' (ms, s, min, h, d, mon)");
}

// "now", or a time as the library reads one ("2008/03/07 09:05:01.042").
ZQTIME TimeOf(const std::string& text) {
  ZQTIME value;
  if (text == "now") {
    ZqTimeGetCurrent(&value);
    return value;
  }
  if (ZqTimeGetFromStr(&value, text.c_str()) != 0) {
    Usage("'" + text + "' is no time (YYYY/MM/DD [HH:MM[:SS][.mmm]])");
  }
  return value;
}

std::string TextOf(const ZQTIME& value) {
  char text[40];
  ZqSysSNPrintf(text, sizeof text, "%.7t", &value);
  return text;
}

void PrintTime(const Args& args, const ZQTIME& value) {
  if (!args.Json()) {
    PrintLine(TextOf(value));
    return;
  }
  static const char* const kDays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                      "Thursday", "Friday", "Saturday"};
  Json json;
  json.Open('{')
      .Member("text", TextOf(value))
      .Member("year", value.year)
      .Member("month", value.month)
      .Member("day", value.day)
      .Member("hour", value.hour)
      .Member("minute", value.minute)
      .Member("second", value.second)
      .Member("millisecond", value.millisecond)
      .Member("weekday", kDays[ZqTimeGetWDay(&value) % 7])
      .Close('}');
  PrintLine(json.Text());
}

int RunTime(const Args& args) {
  const std::string& what = args.Operand(0, "now, parse, add or diff");
  if (what == "now") {
    args.Expect(1, 1);
    PrintTime(args, TimeOf("now"));
  } else if (what == "parse") {
    args.Expect(2, 2);
    PrintTime(args, TimeOf(args.Operand(1, "TIME")));
  } else if (what == "add") {
    args.Expect(4, 4);
    ZQTIME value = TimeOf(args.Operand(1, "TIME"));
    std::int64_t amount = 0;
    if (!ParseI64(args.Operand(2, "AMOUNT"), amount) || amount < INT32_MIN || amount > INT32_MAX) {
      Usage("'" + args.Operand(2, "AMOUNT") + "' is no 32-bit amount");
    }
    ZqTimeAddEx(&value, UnitOf(args.Operand(3, "UNIT")), static_cast<std::int32_t>(amount));
    PrintTime(args, value);
  } else if (what == "diff") {
    args.Expect(3, 4);
    const ZQTIME a = TimeOf(args.Operand(1, "TIME A"));
    const ZQTIME b = TimeOf(args.Operand(2, "TIME B"));
    const std::string unitName = args.Operands().size() > 3 ? args.Operands()[3] : "ms";
    const std::int32_t difference = ZqTimeDiffEx(&a, &b, UnitOf(unitName));
    if (args.Json()) {
      Json json;
      json.Open('{').Member("difference", difference).Member("unit", unitName).Close('}');
      PrintLine(json.Text());
    } else {
      PrintLine(std::to_string(difference));
    }
  } else {
    Usage("unknown time command '" + what + "'");
  }
  return 0;
}

}  // namespace

std::vector<Verb> LocalVerbs() {
  return {
      {"err",
       "the text of a result code, or the codes whose text holds TEXT",
       "zqctl err CODE|TEXT [--json]\n"
       "  CODE is decimal or 0x-hexadecimal: zqctl err 0x8028, zqctl err timeout",
       {},
       RunErr},
      {"time",
       "time values: now, parse, add, diff",
       "zqctl time now|parse TIME|add TIME AMOUNT UNIT|diff TIME_A TIME_B [UNIT] [--json]\n"
       "  TIME is 'now' or 'YYYY/MM/DD [HH:MM[:SS][.mmm]]'; UNIT is ms, s, min, h, d or mon;\n"
       "  diff prints A - B in whole units (default ms)",
       {},
       RunTime},
  };
}

}  // namespace zqctl
