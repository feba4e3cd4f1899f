#include "bench/RawAudio.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>
#include <vector>

namespace orvelle {
namespace {

constexpr std::size_t frameBytes = 2 * sizeof(float);
constexpr std::size_t framesPerTransfer = 8192;

/// Fills `bytes` up to the end of the input, however small the pieces are in which it comes.
std::size_t readFully(char* bytes, std::size_t size) {
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t count = ::read(STDIN_FILENO, bytes + filled, size - filled);
    if (count == 0) {
      break;
    }
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "cannot read standard input");
    }
  }
  return filled;
}

/// False: nobody reads any more.
bool writeFully(const char* bytes, std::size_t size) {
  std::size_t written = 0;
  while (written < size) {
    const ssize_t count = ::write(STDOUT_FILENO, bytes + written, size - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno == EPIPE) {
      return false;
    } else if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "cannot write standard output");
    }
  }
  return true;
}

}  // namespace

void filterStandardInput(const char* program, std::size_t framesPerCallback,
                         const std::function<void(std::span<float> samples)>& filter) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has heard enough is no accident
  // Small callbacks share a transfer: otherwise entering the system costs more than the filter.
  const std::size_t callbacks = std::max<std::size_t>(1, framesPerTransfer / framesPerCallback);
  std::vector<float> block(2 * framesPerCallback * callbacks);
  char* const bytes = reinterpret_cast<char*>(block.data());
  const std::size_t blockBytes = block.size() * sizeof(float);
  std::size_t received = blockBytes;
  while (received == blockBytes) {
    received = readFully(bytes, blockBytes);
    const std::size_t surplus = received % frameBytes;
    const std::size_t whole = received - surplus;
    std::span<float> rest = std::span(block).first(whole / sizeof(float));
    while (!rest.empty()) {
      const std::size_t samples = std::min(2 * framesPerCallback, rest.size());
      filter(rest.first(samples));
      rest = rest.subspan(samples);
    }
    if (!writeFully(bytes, whole)) {
      return;
    }
    if (surplus != 0) {
      std::cerr << program << ": the input ends within a frame; its last " << surplus
                << " bytes are left out\n";
    }
  }
}

}  // namespace orvelle
