// flashlog-cat FILE: prints the records of a Flashlog file as text, oldest first, one line
// each: "<UTC time> <facility>/<level> <message>", the message exactly as Duallog prints it
// (text arguments as far as the record kept them). Works on the file of a running process
// and of one that aborted. Exit code 0 on success, 2 when the file cannot be read or is not
// a complete Flashlog (with a message on stderr naming the file and the problem).

#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>

#include "Trace/FlashlogReader.h"
#include "VplsDecapVersion.h"

namespace {

constexpr int kFailure = 2;

void usage(std::ostream& out) {
  out << "usage: flashlog-cat FILE\n"
         "       flashlog-cat --version\n"
         "Prints the records of a Flashlog file, oldest first. Flashlog files are\n"
         "<dir>/<agent>.flashlog, <dir> from MARL_FLASHLOG_DIR, default /tmp/flashlog;\n"
         "<agent>.flashlog.1 is the file of the previous run.\n"
         "Manual page: flashlog-cat(1).\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string_view(argv[1]) == "-h" || std::string_view(argv[1]) == "--help")) {
    usage(std::cout);
    return 0;
  }
  if (argc == 2 && std::string_view(argv[1]) == "--version") {
    std::cout << "flashlog-cat " << VPLS_DECAP_VERSION << "\n";
    return 0;
  }
  if (argc != 2) {
    usage(std::cerr);
    return kFailure;
  }
  try {
    auto const reader = Trace::FlashlogReader::fromFile(argv[1]);
    std::string out;
    for (auto const& record : reader.records()) {
      out += Trace::FlashlogReader::line(record);
      out += '\n';
      if (out.size() >= 1 << 16) {
        std::fwrite(out.data(), 1, out.size(), stdout);
        out.clear();
      }
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    if (std::fflush(stdout) != 0) {
      std::cerr << "flashlog-cat: cannot write the output\n";
      return kFailure;
    }
    if (reader.skippedWords() != 0) {
      std::cerr << "flashlog-cat: " << argv[1] << ": skipped " << reader.skippedWords()
                << " words of records torn by the ring's wrap or left incomplete\n";
    }
    return 0;
  } catch (std::exception const& e) {
    std::cerr << "flashlog-cat: " << e.what() << '\n';
    return kFailure;
  }
}
