#include "orvelle/platform/Console.h"

#include <cstdio>

namespace orvelle {

namespace {

void write(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
}

}  // namespace

void StandardConsole::print(std::string_view text) {
  write(stdout, text);
  write(stdout, "\n");
  // A reader at the other end of a pipe waits for whole lines.
  std::fflush(stdout);
}

void StandardConsole::printError(std::string_view text) {
  write(stderr, text);
}

}  // namespace orvelle
