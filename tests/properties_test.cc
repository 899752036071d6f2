// Host properties: key=value lines of any length, and property files that are
// not plain small files.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "platform/environment.h"
#include "platform/properties.h"
#include "support/test_support.h"

namespace tavo {
namespace {

std::string lookup(const std::string& path, const char* key) {
  setenv(platform::kPropertyFileVariable, path.c_str(), 1);
  platform::read_environment();
  char value[platform::kPropertyValueMax];
  platform::property_get(key, value, "default");
  unsetenv(platform::kPropertyFileVariable);
  platform::read_environment();
  return value;
}

TEST(Properties, LinesOfAnyLength) {
  const std::string longer(5000, 'x');
  const std::string max_value(platform::kPropertyValueMax - 1, 'v');
  const struct {
    std::string text;
    std::string expected;  // value of "saveinput"
  } cases[] = {
      {"saveinput=yes\n", "yes"},
      {"  saveinput \t=\t yes  \r\nother=1\n", "yes"},
      {"saveinput=no\nsaveinput=yes", "yes"},  // the last line wins, with or without a newline
      {"saveinputs=yes\nsave=yes\n", "default"},
      {"saveinput=\n", "default"},
      // A comment or another key longer than any line buffer stays what it is.
      {"#" + std::string(510, 'c') + "saveinput=yes\n", "default"},
      {"#" + longer + "saveinput=yes\n", "default"},
      {"#" + std::string(509, 'c') + "\nsaveinput=yes\n", "yes"},
      {"other=" + longer + "saveinput=yes\nsaveinput=no\n", "no"},
      // A long value keeps its first bytes.
      {"saveinput=" + max_value + "tail\n", max_value},
      {"saveinput=" + max_value.substr(1) + "   \n", max_value.substr(1)},
  };
  const test::TempDir dir;
  for (const auto& c : cases) {
    const std::string path = dir.path() + "/hdr.prop";
    std::ofstream(path) << c.text;
    EXPECT_EQ(lookup(path, "saveinput"), c.expected) << c.text.substr(0, 80);
  }
}

// A pipe with a writer that never writes, a device without end, a directory
// and an oversized file: each is read without blocking and within bounds (a
// hang here ends the test at its time-out), and said so in the log.
TEST(Properties, FilesThatAreNotSmallRegularFilesAreBounded) {
  const test::TempDir dir;
  const std::string fifo = dir.path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int writer_keeps_open = open(fifo.c_str(), O_RDWR);
  ASSERT_GE(writer_keeps_open, 0);
  const std::string big = dir.path() + "/big.prop";
  {
    std::ofstream file(big);
    file << "saveinput=yes\n" << std::string(platform::kPropertyFileMax, '#') << "\nsaveinput=no\n";
  }
  const struct {
    std::string path, expected, logged;
  } cases[] = {
      {fifo, "default", "is not a regular file"},
      {"/dev/zero", "default", "is not a regular file"},
      {dir.path(), "default", "is not a regular file"},
      {big, "yes", "only the first 1048576 are read"},
  };
  for (const auto& c : cases) {
    test::LogCapture log;
    EXPECT_EQ(lookup(c.path, "saveinput"), c.expected) << c.path;
    EXPECT_EQ(log.count(c.logged), 1) << c.path << log.joined();
  }
  close(writer_keeps_open);
}

}  // namespace
}  // namespace tavo
