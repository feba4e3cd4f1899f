// The filter program as a process: bytes in, bytes out, exit statuses.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvelle/EQPreset.h"
#include "tests/RenderRig.h"

namespace orvelle::test {
namespace {

class FilterProgramTest : public ::testing::Test {
 public:
  FilterProgramTest() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "orvelle-filter-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("no temporary directory");
    }
    directory_ = pattern;
  }

  ~FilterProgramTest() override { std::filesystem::remove_all(directory_); }

  /// Runs a shell line, in which `$FILTER` is the program and `in`, `out`, `errors` are files.
  int run(const std::string& line) const {
    const std::string whole =
        "cd '" + directory_.string() + "' && FILTER='" ORVELLE_FILTER "' && " + line;
    const int status = std::system(whole.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  void write(const std::vector<float>& samples, std::size_t surplusBytes = 0) const {
    std::ofstream file(directory_ / "in", std::ios::binary);
    file.write(reinterpret_cast<const char*>(samples.data()),
               static_cast<std::streamsize>(samples.size() * sizeof(float)));
    file << std::string(surplusBytes, 'x');
  }

  std::string content(const char* name) const {
    std::ifstream file(directory_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::filesystem::path directory_;
};

std::string bytesOf(const std::vector<float>& samples) {
  return {reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof(float)};
}

// Catches options that do not reach the chain, state lost between callbacks, and pieces that are
// lost or padded where a pipe delivers in portions that fit no frame.
TEST_F(FilterProgramTest, SoundsLikeTheModelHoweverTheInputArrives) {
  const std::vector<float> input = noise(3, 20002, 1.0F);
  write(input);
  ScalarModel model;
  model.gain = 3.0F;
  model.spatialWidth = 1.5F;
  model.equalizerEnabled = true;
  model.setGains(gains(EQPreset::bass));
  const std::string expected = bytesOf(play(model, input, 2));

  const std::string options = " --gain 3 --width 1.5 --preset 'Bass Boost' ";
  EXPECT_EQ(run("\"$FILTER\"" + options + "< in > out"), 0);
  EXPECT_EQ(content("out"), expected);
  EXPECT_EQ(run("dd if=in bs=4099 status=none | \"$FILTER\" --frames 333" + options + "> out"), 0);
  EXPECT_EQ(content("out"), expected);
  const std::string name = std::string(" --kernels ") + vector::usableKernels().back()->name;
  const std::string bands = name + " --gain 3 --width 1.5 --bands 8,7,5,3,1,0,0,0,0,0 ";
  EXPECT_EQ(run("\"$FILTER\"" + bands + "< in > out"), 0);
  EXPECT_EQ(content("out"), expected);
}

// Catches a trailing piece of a frame that is passed on, or kept quiet about.
TEST_F(FilterProgramTest, LeavesOutAnIncompleteLastFrame) {
  const std::vector<float> input = noise(3, 1026, 1.0F);
  write(input, 5);
  EXPECT_EQ(run("\"$FILTER\" < in > out 2> errors"), 0);
  EXPECT_EQ(content("out"), bytesOf(input));
  EXPECT_NE(content("errors").find("last 5 bytes"), std::string::npos);
}

// Catches a program that fails because its reader has heard enough, and one that keeps quiet when
// its output is lost.
TEST_F(FilterProgramTest, ClosedPipeIsAnEndAndALostWriteAnError) {
  write(noise(3, 400000, 1.0F));
  EXPECT_EQ(run("{ \"$FILTER\" < in 2> errors; echo $? > out; } | head -c 8 > /dev/null"), 0);
  EXPECT_EQ(content("out"), "0\n");
  EXPECT_EQ(content("errors"), "");
  EXPECT_EQ(run("\"$FILTER\" < in > /dev/full 2> errors"), 1);
  EXPECT_NE(content("errors").find("cannot write"), std::string::npos);
  EXPECT_EQ(run("\"$FILTER\" < . > out 2> errors"), 1);
  EXPECT_NE(content("errors").find("cannot read"), std::string::npos);
}

// Catches options that are misread instead of refused.
TEST_F(FilterProgramTest, RefusesWhatItDoesNotUnderstand) {
  write({});
  for (const char* const options :
       {"--gian 2", "--gain", "--gain 2x", "--gain nan", "--gain -1", "--width ''", "--preset bass",
        "--bands 1,2", "--bands 0,0,0,0,0,0,0,0,0,x", "--bands 0,0,0,0,0,0,0,0,0,0,0",
        "--kernels mmx", "--frames 0", "--frames 1.5", "--frames 99999999", "loud"}) {
    EXPECT_EQ(run(std::string("\"$FILTER\" ") + options + " < in > out 2> errors"), 2) << options;
    EXPECT_NE(content("errors"), "") << options;
    EXPECT_EQ(content("out"), "") << options;
  }
  EXPECT_EQ(run("\"$FILTER\" --help < in > out"), 0);
  EXPECT_NE(content("out").find("--preset"), std::string::npos);
}

}  // namespace
}  // namespace orvelle::test
