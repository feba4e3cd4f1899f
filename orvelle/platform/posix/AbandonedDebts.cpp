#include "orvelle/platform/posix/AbandonedDebts.h"

#include <system_error>

#include "orvelle/PutRight.h"

namespace orvelle {

namespace {

void setAside(const std::filesystem::path& file, Console& console) {
  std::filesystem::path aside = file;
  aside += ".damaged";
  std::error_code error;
  std::filesystem::rename(file, aside, error);
  console.printError("orvelle: the journal of a killed process is damaged, and is now " +
                     aside.native() + ". Check the volume of your outputs.\n");
}

}  // namespace

void payAbandonedDebts(const UndoJournal& journal, Console& console,
                       const std::function<std::unique_ptr<AudioHardware>()>& connect) {
  std::unique_ptr<AudioHardware> hardware;
  for (const UndoJournal::Entry& entry : journal.entries()) {
    if (entry.isAlive) {
      continue;
    }
    const auto records = UndoJournal::read(entry.file);
    std::error_code error;
    if (!records && std::filesystem::exists(entry.file, error)) {
      setAside(entry.file, console);
      continue;
    }
    if (records && !hardware) {
      hardware = connect();
    }
    if (records && hardware) {
      UndoJournal::write(entry.file, putRight(*hardware, *records));
    }
  }
}

}  // namespace orvelle
