// What survives the program: records, their journal, and how they are paid.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "orvelle/HAL.h"
#include "orvelle/PutRight.h"
#include "orvelle/platform/posix/RecordSocket.h"
#include "orvelle/platform/posix/UndoJournal.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"

namespace orvelle {
namespace {

UndoRecords everything() {
  UndoRecords records;
  records["boost"].defaultOutput = {"the former one", "Loopback"};
  records["boost"].raisedOutputs = {{"speakers", {0.2F, false}},
                                    {"", {std::nullopt, true}},
                                    {"a name\nwith 100 % of everything é", {0.123456789F, {}}}};
  records["tap 1"].hasTaps = true;
  return records;
}

// Would catch a fact that is lost or changed on its way through the journal.
TEST(UndoRecordTest, IsReadBackAsItWasWritten) {
  EXPECT_EQ(decodeUndo(encodeUndo(everything())), everything());
  EXPECT_EQ(decodeUndo(encodeUndo({})), UndoRecords{});
}

// Would catch half a record that is acted upon, and a crash over a damaged one.
TEST(UndoRecordTest, IsWholeOrNothing) {
  const std::string whole = encodeUndo(everything());
  for (std::size_t length = 0; length + 1 < whole.size(); ++length) {
    EXPECT_FALSE(decodeUndo(whole.substr(0, length))) << length;
  }
  for (const char* line : {"boost raised usb nan -", "boost raised usb -0.5 -",
                           "boost raised usb 0.5 loud", "boost raised usb 0.5",
                           "boost raised %4 0.5 -", "boost default-output a", "boost", "x y"}) {
    EXPECT_FALSE(decodeUndo("orvelle-undo 1\n" + std::string(line) + "\nend\n")) << line;
  }
}

// Would catch a full disk that costs the journal that is there, or leaves half a one.
TEST(UndoJournalTest, KeepsTheFormerStateWhereTheDiskIsFull) {
  const std::filesystem::path folder = std::filesystem::path(testing::TempDir()) / "orvelle-undo";
  std::filesystem::remove_all(folder);
  const std::filesystem::path file = folder / "undo-1-1";
  ASSERT_TRUE(UndoJournal::write(file, everything()));
  std::filesystem::create_symlink("/dev/full", folder / "undo-1-1.new");
  EXPECT_FALSE(UndoJournal::write(file, {{"boost", {{}, {{"usb", {0.1F, {}}}}}}}));
  EXPECT_EQ(UndoJournal::read(file), everything());
  EXPECT_TRUE(UndoJournal::write(file, {}));
  EXPECT_TRUE(std::filesystem::is_empty(folder));
  std::filesystem::remove(folder);
}

// Would catch a record that is taken for the last one though a newer one came, and, where records
// travel as a stream, one that runs into the rest of another that found too little room; one that
// was cut short, and counts; or records that are not read because the other end has left something
// unread.
TEST(RecordSocketTest, TellsTheLastWholeRecord) {
  const std::string longerThanTheRoom(150'000, 'x');
  const auto isWhole = [&](std::string_view record) {
    return record[0] != 'x' || record == longerThanTheRoom;
  };
  for (const int kind : {SOCK_STREAM, SOCK_SEQPACKET}) {
    for (const std::string last : {"second", ""}) {
      std::array<int, 2> sockets{};
      if (socketpair(AF_UNIX, kind, 0, sockets.data()) != 0) {
        ASSERT_EQ(kind, SOCK_SEQPACKET) << "not every system has these";
        continue;
      }
      sendRecord(sockets[0], {});
      sendRecord(sockets[0], "first");
      sendRecord(sockets[0], longerThanTheRoom);
      sendRecord(sockets[0], last);
      sendRecord(sockets[1], "that nobody reads");
      close(sockets[0]);
      const std::string told = lastRecord(sockets[1], isWhole);
      close(sockets[1]);
      EXPECT_TRUE(told == (last.empty() ? "first" : last) ||
                  (last.empty() && told == longerThanTheRoom))
          << told.substr(0, 10);
    }
  }
}

class PutRightTest : public testing::Test {
 protected:
  PutRightTest() {
    hardware.plug(stereoOutput("speakers", kAudioDeviceTransportTypeBuiltIn, 0.2F));
    hardware.plug(stereoOutput("usb", kAudioDeviceTransportTypeUSB, 0.3F));
    hardware.plug(loopbackDevice());
    records["boost"].defaultOutput = {"speakers", "OrvelleAudioDevice_UID"};
    records["boost"].raisedOutputs = {{"speakers", {0.2F, false}}};
    hardware.chooseDefaultOutput("OrvelleAudioDevice_UID");
    hardware.setVolume("speakers", 1.0F);
  }

  float volume(const std::string& uid) const {
    return HAL(hardware).outputVolume(hardware.id(uid)).value_or(-1.0F);
  }

  ManualQueue queue;
  mutable SimulatedHardware hardware{queue};
  UndoRecords records;
};

// Would catch a raised output that becomes the default before it is lowered.
TEST_F(PutRightTest, LowersBeforeItRestoresTheDefault) {
  hardware.afterChange = [&] {
    EXPECT_TRUE(hardware.defaultOutputUID() != "speakers" || volume("speakers") == 0.2F);
  };
  EXPECT_EQ(putRight(hardware, records), UndoRecords{});
  EXPECT_EQ(volume("speakers"), 0.2F);
  EXPECT_EQ(hardware.defaultOutputUID(), "speakers");
  hardware.afterChange = nullptr;
}

// Would catch a choice of the user's that is overruled.
TEST_F(PutRightTest, LeavesAloneWhatTheUserHasChanged) {
  hardware.setVolume("speakers", 0.6F);
  hardware.chooseDefaultOutput("usb");
  EXPECT_EQ(putRight(hardware, records), UndoRecords{});
  EXPECT_EQ(volume("speakers"), 0.6F);
  EXPECT_EQ(hardware.defaultOutputUID(), "usb");
}

// Would catch a default output that goes to one that stands at full volume, and a debt that is
// forgotten because it cannot be paid now.
TEST_F(PutRightTest, KeepsWhatCannotBePaidNow) {
  hardware.inject({.kind = CallKind::setPropertyData,
                   .selector = kAudioDevicePropertyVolumeScalar,
                   .effect = FaultEffect::fail});
  records["boost"].raisedOutputs["away"] = {0.4F, true};
  UndoRecords left = putRight(hardware, records);
  EXPECT_EQ(left["boost"].raisedOutputs, records["boost"].raisedOutputs);
  EXPECT_EQ(hardware.defaultOutputUID(), "usb");

  hardware.clearFaults();
  DeviceDescription away = stereoOutput("away", kAudioDeviceTransportTypeUSB, 1.0F);
  hardware.plug(away);
  EXPECT_EQ(putRight(hardware, left), UndoRecords{});
  EXPECT_EQ(volume("speakers"), 0.2F);
  EXPECT_EQ(volume("away"), 0.4F);
  EXPECT_EQ(hardware.device("away").mute, true);
}

}  // namespace
}  // namespace orvelle
