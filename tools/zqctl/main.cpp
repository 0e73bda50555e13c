// zqctl: one program, a table of verbs. Each verb parses its own options,
// prints text for people or JSON for scripts (--json), and exits 0 only on
// success; a failure prints the result code and its text on standard error.
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "cli.h"
#include "zqsys/zqerr.h"

namespace zqctl {
namespace {

std::vector<Verb> AllVerbs() {
  std::vector<Verb> verbs;
  for (auto group : {LocalVerbs, FileVerbs, RouterVerbs}) {
    for (Verb& verb : group())
      verbs.push_back(std::move(verb));
  }
  return verbs;
}

void PrintHelp(const std::vector<Verb>& verbs) {
  std::printf(
      "usage: zqctl VERB [ARGS] [--json] [--help]\n"
      "\n"
      "Verbs:\n");
  for (const Verb& verb : verbs)
    std::printf("  %-8s %s\n", verb.name, verb.summary);
  std::printf(
      "\n"
      "Verbs that talk to a router take --router HOST:PORT (default: $ZQ_ROUTER,\n"
      "else 127.0.0.1:7420) and --app NAME (default: zqctl-PID).\n"
      "Exit status: 0 success, 1 a failed operation, 2 a bad command line.\n"
      "'zqctl VERB --help' describes one verb.\n");
}

void PrintVerbHelp(const Verb& verb) {
  std::printf("usage: %s\n\n%s\n", verb.usage, verb.summary);
}

int Report(const char* verb, const Failure& failure) {
  std::fprintf(stderr, "zqctl %s: %s: zqerr %u=0x%X - '%s'\n", verb, failure.what(), failure.code,
               failure.code, ZqErrGetDescrStr(failure.code));
  return failure.status;
}

}  // namespace
}  // namespace zqctl

int main(int argc, char** argv) {
  using namespace zqctl;
  const std::vector<Verb> verbs = AllVerbs();
  if (argc < 2 || std::string(argv[1]) == "--help" || std::string(argv[1]) == "help") {
    PrintHelp(verbs);
    return argc < 2 ? kExitUsage : 0;
  }
  const std::string name = argv[1];
  const std::vector<std::string> words(argv + 2, argv + argc);
  for (const Verb& verb : verbs) {
    if (name != verb.name) continue;
    try {
      const Args args(words, verb.options);
      if (args.Has("help")) {
        PrintVerbHelp(verb);
        return 0;
      }
      return verb.run(args);
    } catch (const Failure& failure) {
      return Report(verb.name, failure);
    } catch (const std::bad_alloc&) {
      return Report(verb.name, Failure("out of memory", ZQERR_COMMON_NO_MEMORY));
    }
  }
  std::fprintf(stderr, "zqctl: unknown verb '%s': zqerr 2=0x2 - '%s'\n", name.c_str(),
               ZqErrGetDescrStr(ZQERR_COMMON_WRONG_ARGUMENTS));
  return kExitUsage;
}
