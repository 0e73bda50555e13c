// The engine loop: walks the format, parses each conversion's flags, width,
// precision and length, finds it in the conversion table and writes its text
// through an output. Integers and strings are formatted inline; the other
// conversions live in printf_float.cpp and printf_extensions.cpp.
#include "common/printf_engine.h"

#include <array>
#include <climits>
#include <cstring>

#include "common/printf_conversion.h"
#include "common/printf_directive.h"
#include "common/printf_integer.h"
#include "common/printf_outputs.h"
#include "os/memory.h"

namespace zq::common {
namespace {

using namespace printf_detail;

// The conversion table, in search order.
constexpr Conversion kConversions[] = {
    {'d', Kind::kInteger, 10, true, false, kUpper, ""},
    {'s', Kind::kString, 0, false, true, kUpper, ""},
    {'B', Kind::kDecimal, 0, false, false, kUpper, ""},
    {'b', Kind::kTypedDecimal, 0, false, false, kUpper, ""},
    {'t', Kind::kTime, 0, false, false, kUpper, ""},
    {'q', Kind::kQuoted, 0, false, true, kUpper, ""},
    {'Q', Kind::kQuotedInQuotes, 0, false, true, kUpper, ""},
    {'c', Kind::kChar, 0, false, false, kUpper, ""},
    {'o', Kind::kInteger, 8, false, false, kUpper, "0"},
    {'u', Kind::kInteger, 10, false, false, kUpper, ""},
    {'x', Kind::kInteger, 16, false, false, kLower, "0x"},
    {'X', Kind::kInteger, 16, false, false, kUpper, "0X"},
    {'f', Kind::kFixed, 0, true, false, kLower, ""},
    {'e', Kind::kExponent, 0, true, false, kLower, ""},
    {'E', Kind::kExponent, 0, true, false, kUpper, ""},
    {'g', Kind::kGeneral, 0, true, false, kLower, ""},
    {'G', Kind::kGeneral, 0, true, false, kUpper, ""},
    {'z', Kind::kDump, 0, false, true, kLower, ""},
    {'Z', Kind::kDump, 0, false, true, kUpper, ""},
    {'R', Kind::kResult, 0, false, false, kUpper, ""},
    {'r', Kind::kSystemError, 0, false, false, kUpper, ""},
    {'H', Kind::kHex, 16, false, false, kUpper, ""},
    {'i', Kind::kInteger, 10, true, false, kUpper, ""},
    {'n', Kind::kCount, 0, false, false, kUpper, ""},
    {'%', Kind::kPercent, 0, false, false, kUpper, ""},
    {'p', Kind::kPointer, 16, false, false, kUpper, "0x"},
};

// The table indexed by character, so that a conversion costs one lookup; the
// first row of a character wins. Characters without a row have letter 0.
constexpr auto kByCharacter = [] {
  std::array<Conversion, 128> rows{};
  for (std::size_t i = sizeof(kConversions) / sizeof(kConversions[0]); i-- > 0;) {
    rows[static_cast<unsigned char>(kConversions[i].letter)] = kConversions[i];
  }
  return rows;
}();

const Conversion* FindConversion(char letter) noexcept {
  const auto c = static_cast<unsigned char>(letter);
  if (c >= kByCharacter.size() || kByCharacter[c].letter == 0) return nullptr;
  return &kByCharacter[c];
}

// Padding goes out in pieces of at most this run of blanks.
constexpr char kBlanks[] =
    "                                                                         ";
constexpr std::size_t kBlankRun = sizeof(kBlanks) - 1;
static_assert(kBlankRun == 73);

// An integer argument of the conversion's signedness and the directive's width.
[[gnu::always_inline]] inline std::uint64_t ReadInteger(const Conversion& c, const Spec& spec,
                                                        ArgList& args, bool& negative) noexcept {
  if (!c.is_signed) {
    return spec.wide ? va_arg(args.ap, unsigned long long) : va_arg(args.ap, unsigned);
  }
  const std::int64_t v = spec.wide ? va_arg(args.ap, long long) : va_arg(args.ap, int);
  negative = v < 0;
  return negative ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
}

// The text of every conversion but integers, strings, floats and %n, which
// the engine loop handles itself. Shared by all outputs, so not inline.
Piece FormatOther(const Conversion& c, const Spec& spec, ArgList& args, char* scratch) noexcept {
  Piece piece;
  switch (c.kind) {
    case Kind::kPointer: {
      const auto value = reinterpret_cast<std::uintptr_t>(va_arg(args.ap, void*));
      piece.text = IntegerText(value, false, spec, c).Put(c, scratch + kScratchSize);
      piece.length = static_cast<std::size_t>(scratch + kScratchSize - piece.text);
      break;
    }
    case Kind::kHex:
      FormatHex(spec.wide ? va_arg(args.ap, unsigned long long) : va_arg(args.ap, unsigned),
                scratch, piece);
      break;
    case Kind::kQuoted:
    case Kind::kQuotedInQuotes:
      FormatQuoted(va_arg(args.ap, const char*), c.kind == Kind::kQuotedInQuotes, spec, scratch,
                   piece);
      break;
    case Kind::kChar:
      piece.length = spec.precision < 0 ? 1 : static_cast<std::size_t>(spec.precision);
      std::memset(scratch, static_cast<char>(va_arg(args.ap, int)), piece.length);
      piece.text = scratch;
      break;
    case Kind::kPercent:
      piece.text = "%";
      piece.length = 1;
      break;
    case Kind::kDump:
      FormatDump(va_arg(args.ap, const unsigned char*), spec, c, scratch, piece);
      break;
    case Kind::kTime:
      FormatTime(va_arg(args.ap, const ZQTIME*), spec, scratch, piece);
      break;
    case Kind::kDecimal:
      FormatDecimalArgument(va_arg(args.ap, const void*), spec, scratch, piece);
      break;
    case Kind::kTypedDecimal: {
      // A null value takes no type argument: the next conversion gets it.
      const void* value = va_arg(args.ap, const void*);
      if (value != nullptr) {
        FormatTypedDecimalArgument(value, va_arg(args.ap, unsigned), spec, scratch, piece);
      }
      break;
    }
    case Kind::kResult:
      FormatResult(va_arg(args.ap, unsigned), scratch, piece);
      break;
    case Kind::kSystemError:
      FormatSystemError(va_arg(args.ap, unsigned), scratch, piece);
      break;
    case Kind::kInteger:
    case Kind::kString:
    case Kind::kFixed:
    case Kind::kExponent:
    case Kind::kGeneral:
    case Kind::kCount:
      break;  // the engine loop's own
  }
  return piece;
}

// The next "%" or the end. Runs between conversions are mostly a few
// characters, which a plain loop finds faster than a library call; longer
// ones go to strchrnul's wide compares.
[[gnu::always_inline]] inline const char* FindPercent(const char* f) noexcept {
  static constexpr auto kStops = [] {
    std::array<bool, 256> stops{};
    stops['%'] = stops['\0'] = true;
    return stops;
  }();
  for (int i = 0; i < 8; ++i, ++f) {
    if (kStops[static_cast<unsigned char>(*f)]) return f;
  }
  return strchrnul(f, '%');
}

// Writes `count` blanks through `out`.
template <class Out>
void PutBlanks(Out& out, std::size_t count) {
  while (count > 0) {
    const std::size_t n = count < kBlankRun ? count : kBlankRun;
    out(kBlanks, n);
    count -= n;
  }
}

// Writes a conversion's text with its blank padding; returns the characters
// written.
template <class Out>
[[gnu::always_inline]] inline std::size_t PutPadded(Out& out, const Spec& spec, const char* text,
                                                    std::size_t length) {
  const auto width = static_cast<std::size_t>(spec.width);
  const std::size_t pad = width > length ? width - length : 0;
  if (pad != 0 && !spec.left) PutBlanks(out, pad);
  if (length != 0) out(text, length);
  if (pad != 0 && spec.left) PutBlanks(out, pad);
  return length + pad;
}

// An integer: straight into the output when it lends room and the
// conversion has no width, else built in the scratch and written through the
// output. A padded integer stays on the scratch path: measuring it first
// costs more than the copy saves.
template <class Out>
[[gnu::always_inline]] inline std::size_t PutInteger(Out& out, const Conversion& c,
                                                     const Spec& spec, ArgList& args,
                                                     char* scratch) {
  bool negative = false;
  const std::uint64_t magnitude = ReadInteger(c, spec, args, negative);
  const IntegerText text(magnitude, negative, spec, c);
  if constexpr (Out::kLendsRoom) {
    if (spec.width == 0) {
      const std::size_t length = text.Length();
      if (char* at = out.Reserve(length)) {
        text.Put(c, at + length);
        out.Commit(length);
        return length;
      }
    }
  }
  char* const end = scratch + kScratchSize;
  const char* start = text.Put(c, end);
  return PutPadded(out, spec, start, static_cast<std::size_t>(end - start));
}

template <class Out>
[[gnu::always_inline]] inline std::size_t PutString(Out& out, const Spec& spec, ArgList& args) {
  const char* s = va_arg(args.ap, const char*);
  std::size_t length = 0;
  if (s != nullptr) {
    length =
        spec.precision >= 0 ? strnlen(s, static_cast<std::size_t>(spec.precision)) : std::strlen(s);
  }
  return PutPadded(out, spec, s, length);
}

// %n: the characters produced so far, saturated.
void StoreCount(ArgList& args, std::int64_t count) noexcept {
  int* target = va_arg(args.ap, int*);
  if (target != nullptr) *target = count > INT_MAX ? INT_MAX : static_cast<int>(count);
}

// Formats one conversion through `out`; returns the characters written, or
// -1 when formatting ends here.
template <class Out>
[[gnu::always_inline]] inline std::int64_t PutConversion(Out& out, const Conversion& c,
                                                         const Spec& spec, ArgList& args,
                                                         std::int64_t count, char* scratch) {
  // Integers, strings and floats, most of what formats hold, go straight out.
  if (c.kind == Kind::kInteger)
    return static_cast<std::int64_t>(PutInteger(out, c, spec, args, scratch));
  if (c.kind == Kind::kString) return static_cast<std::int64_t>(PutString(out, spec, args));
  if (c.kind == Kind::kFixed || c.kind == Kind::kExponent || c.kind == Kind::kGeneral) {
    const std::size_t length = FormatFloat(va_arg(args.ap, double), spec, c, scratch);
    return static_cast<std::int64_t>(PutPadded(out, spec, scratch, length));
  }
  if (c.kind == Kind::kCount) {
    StoreCount(args, count);
    return 0;
  }
  const Piece piece = FormatOther(c, spec, args, scratch);
  if (piece.stop) return -1;
  const std::size_t written = PutPadded(out, spec, piece.text, piece.length);
  if (piece.heap != nullptr) os::Release(piece.heap);
  return static_cast<std::int64_t>(written);
}

template <class Out>
[[gnu::always_inline]] inline int RunEngine(Out& out, const char* format, ArgList& args) {
  char scratch[kScratchSize];
  std::int64_t count = 0;
  const char* f = format;
  for (;;) {
    const char* percent = FindPercent(f);
    if (percent != f) {
      out(f, static_cast<std::size_t>(percent - f));
      count += percent - f;
    }
    if (*percent == '\0') break;
    f = percent + 1;
    if (*f == '\0') {
      out("%", 1);
      ++count;
      break;
    }
    Spec spec;
    f = ParseSpec(f, spec, args);
    const Conversion* c = FindConversion(*f);
    if (c == nullptr) {
      out("???", 3);
      count += 3;
      break;
    }
    ++f;
    if (!c->string_like && spec.precision > kMaxPrecision) spec.precision = kMaxPrecision;
    const std::int64_t written = PutConversion(out, *c, spec, args, count, scratch);
    if (written < 0) break;
    count += written;
  }
  return count > INT_MAX ? INT_MAX : static_cast<int>(count);
}

void PutToGrowingSink(void* sink, const char* text, std::size_t length) noexcept {
  GrowingOutput{*static_cast<PrintfSink*>(sink)}(text, length);
}

// The growing text's start on the stack: most texts fit it, and then the heap
// sees one allocation of the final size.
constexpr std::size_t kGrowingStart = 200;

}  // namespace

int FormatV(PrintfOutput output, void* context, const char* format, va_list args) noexcept {
  // The engine reads a copy, so the caller's list stays usable.
  ArgList list;
  va_copy(list.ap, args);
  CallbackOutput out{output, context};
  const int count = RunEngine(out, format != nullptr ? format : "", list);
  va_end(list.ap);
  return count;
}

std::uint32_t FormatToBuffer(char* buffer, std::uint32_t size, const char* format,
                             va_list args) noexcept {
  PrintfSink sink;
  sink.initial = sink.text = buffer;
  sink.capacity = size;
  buffer[0] = '\0';
  // The fixed buffer has the engine inline: the form every log line takes.
  ArgList list;
  va_copy(list.ap, args);
  FixedOutput out{sink};
  RunEngine(out, format != nullptr ? format : "", list);
  va_end(list.ap);
  return static_cast<std::uint32_t>(out.sink.stored);
}

std::uint32_t FormatToBufferF(char* buffer, std::uint32_t size, const char* format, ...) noexcept {
  va_list args;
  va_start(args, format);
  const std::uint32_t length = FormatToBuffer(buffer, size, format, args);
  va_end(args);
  return length;
}

std::uint32_t FormatToHeap(char** result, const char* format, va_list args) noexcept {
  char start[kGrowingStart];
  start[0] = '\0';
  PrintfSink sink;
  sink.initial = sink.text = start;
  sink.capacity = sizeof(start);
  FormatV(PutToGrowingSink, &sink, format, args);
  char* text = sink.text;
  if (text == start) {
    text = static_cast<char*>(os::Allocate(sink.stored + 1));
    if (text != nullptr) std::memcpy(text, start, sink.stored + 1);
  } else if (text != nullptr && sink.capacity > sink.stored + 10) {
    if (char* shrunk = static_cast<char*>(os::Reallocate(text, sink.stored + 1))) text = shrunk;
  }
  *result = text;
  if (text == nullptr) return 0;
  return sink.stored > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(sink.stored);
}

}  // namespace zq::common
