// tavo-hdr run as a user runs it: fused bytes equal the library's, image files
// round-trip, dumps the library wrote replay identically, every refusal has its
// exit code and one-line message and leaves every file as it was, and a signal
// stops it with its exit code and no temporary file left.
#ifdef TAVO_HDR_TOOL_PATH

#include <fcntl.h>
#include <png.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <map>
#include <regex>
#include <sstream>

#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"
#include "tools/cli_args.h"
#include "tools/image_io.h"
#include "tools/raw_io.h"
#include "tools/scene/scene.h"
#include "tools/yuv_convert.h"

namespace fs = std::filesystem;
using namespace tavo::tool;

namespace tavo::tool::test {
std::map<std::string, std::string> snapshot(const std::string& dir);  // in tool_parts_test.cc
}

namespace {

using tavo::tool::test::snapshot;

struct ToolRun {
  int exit_code = -1;  // 128 + the signal when one killed it
  std::string out, err;
};

// Runs the tool (through the emulator in a cross build) in `dir` with `args`
// (split at blanks) and TMPDIR=dir. With `signal`, sends it once stdout shows
// `when`; with `memory`, that is all the address space it gets.
ToolRun run_tool(const std::string& dir, const std::string& args, int signal = 0, const std::string& when = "",
                 rlim_t memory = 0) {
  std::vector<std::string> words, env{"TMPDIR=" + dir};
#ifdef TAVO_HDR_TOOL_EMULATOR
  std::istringstream emulator(TAVO_HDR_TOOL_EMULATOR);
  for (std::string word; emulator >> word;) words.push_back(word);
#endif
  words.push_back(TAVO_HDR_TOOL_PATH);
  std::istringstream split(args);
  for (std::string word; split >> word;) words.push_back(word);
  for (char** e = environ; *e != nullptr; ++e) {
    if (!std::string(*e).starts_with("TMPDIR=")) env.push_back(*e);
  }
  std::vector<char*> argv, envp;
  for (std::string& w : words) argv.push_back(w.data());
  for (std::string& e : env) envp.push_back(e.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  int out[2];
  const int err = memfd_create("stderr", MFD_CLOEXEC);
  if (err < 0 || pipe2(out, O_CLOEXEC) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {  // only async-signal-safe calls: the test has threads
    const rlimit limit{memory, memory};
    if (dup2(out[1], 1) == 1 && dup2(err, 2) == 2 && (memory == 0 || setrlimit(RLIMIT_AS, &limit) == 0) &&
        chdir(dir.c_str()) == 0) {
      execve(argv[0], argv.data(), envp.data());
    }
    _exit(127);
  }
  close(out[1]);
  ToolRun run;
  char buffer[4096];
  for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) {
    run.out.append(buffer, static_cast<size_t>(n));
    if (signal != 0 && run.out.find(when) != std::string::npos) kill(pid, std::exchange(signal, 0));
  }
  close(out[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  run.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  run.err.resize(static_cast<size_t>(lseek(err, 0, SEEK_END)));
  if (pread(err, run.err.data(), run.err.size(), 0) < 0) run.err = "(stderr lost)";
  close(err);
  return run;
}

// The line of `text` that starts with `start`, or "".
std::string line_starting(const std::string& text, const std::string& start) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(start)) return line;
  }
  return "";
}

std::vector<uint8_t> read_all(const std::string& path) {
  std::vector<uint8_t> bytes;
  std::string error;
  read_file(path, &bytes, &error);
  return bytes;
}

void write_all(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::string error;
  ASSERT_TRUE(write_output(path, bytes.data(), bytes.size(), {}, &error)) << error;
}

RgbImage rgb_of(const std::vector<uint8_t>& yuv, int32_t w, int32_t h) {
  RgbImage image{w, h, std::vector<uint8_t>(static_cast<size_t>(w) * h * 3)};
  yuv420_to_rgb(yuv.data(), w, h, ChromaLayout::kPlanar, image.pixels.data());
  return image;
}

std::array<std::vector<uint8_t>, 3> bracket(int32_t w, int32_t h, tavo::scene::Layout layout) {
  tavo::scene::BracketSetup setup;
  setup.layout = layout;
  setup.dx0 = 2;
  setup.dy0 = -2;
  setup.dx2 = -4;
  return tavo::scene::render_bracket(tavo::scene::Scene{w, h, 9}, setup);
}

class Tool : public tavo::test::PoolTest {
 protected:
  std::vector<uint8_t> fuse_here(const std::array<std::vector<uint8_t>, 3>& f, int32_t w, int32_t h,
                                 const char* layout) {
    std::vector<uint8_t> out(f[0].size());
    EXPECT_EQ(HDR_Function(f[0].data(), f[1].data(), f[2].data(), out.data(), h, w, layout), 0);
    return out;
  }
  void write_inputs(const std::array<std::vector<uint8_t>, 3>& frames) {
    for (int k = 0; k < 3; ++k) write_all(dir_.path() + "/in" + std::to_string(k) + ".yuv", frames[k]);
  }
  tavo::test::TempDir dir_;
};

TEST_F(Tool, RawFramesFuseToTheLibrarysBytesAndReportEveryStage) {
  for (auto layout : {tavo::scene::Layout::kPlanar, tavo::scene::Layout::kSemiPlanar}) {
    const std::string name = tavo::scene::layout_name(layout);
    const auto frames = bracket(96, 64, layout);
    write_inputs(frames);
    const ToolRun run = run_tool(dir_.path(), "fuse in0.yuv in1.yuv in2.yuv -o out.yuv --size 96x64 --layout " + name);
    ASSERT_EQ(run.exit_code, 0) << run.err;
    EXPECT_EQ(read_all(dir_.path() + "/out.yuv"), fuse_here(frames, 96, 64, name.c_str())) << name;
    for (const std::string stage : {"registration", "fusion", "resize", "total"}) {
      EXPECT_TRUE(std::regex_search(run.out, std::regex("(^|\n)" + stage + " +[0-9]+\\.[0-9] ms\n"))) << run.out;
    }
    EXPECT_EQ(run.err, "");  // the library's lines only with --verbose
  }
  EXPECT_NE(run_tool(dir_.path(), "fuse in0.yuv in1.yuv in2.yuv -o out.yuv --size 96x64 --verbose").err.find(
                "HDR_Function START."),
            std::string::npos);
}

TEST_F(Tool, ImageFilesFuseAsFullRangeYuvAndComeBackInTheirFormat) {
  const int32_t w = 64, h = 48;
  const auto frames = bracket(w, h, tavo::scene::Layout::kPlanar);
  std::string error;
  for (const std::string e : {"png", "jpg"}) {
    for (int k = 0; k < 3; ++k) {
      ASSERT_TRUE(write_image(dir_.path() + "/in" + std::to_string(k) + "." + e, rgb_of(frames[k], w, h), &error));
    }
    const ToolRun run = run_tool(dir_.path(), "fuse in0." + e + " in1." + e + " in2." + e + " -o fused." + e);
    ASSERT_EQ(run.exit_code, 0) << run.err;
    RgbImage fused;
    ASSERT_TRUE(read_image(dir_.path() + "/fused." + e, &fused, &error)) << error;
    EXPECT_EQ(fused.width, w);
    EXPECT_EQ(fused.height, h);
    if (e != "png") continue;
    // Lossless files: the fused picture is the library's fusion of the
    // converted inputs, converted back.
    std::array<std::vector<uint8_t>, 3> yuv;
    for (int k = 0; k < 3; ++k) {
      RgbImage in;
      ASSERT_TRUE(read_image(dir_.path() + "/in" + std::to_string(k) + ".png", &in, &error));
      yuv[k].resize(frames[k].size());
      rgb_to_yuv420(in.pixels.data(), w, h, ChromaLayout::kPlanar, yuv[k].data());
    }
    EXPECT_EQ(fused.pixels, rgb_of(fuse_here(yuv, w, h, "YUV420_PLANAR"), w, h).pixels);
  }
  // Alpha is composited over black: an opaque and a transparent pixel.
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  png.width = 2;
  png.height = 1;
  png.format = PNG_FORMAT_RGBA;
  const uint8_t rgba[] = {200, 100, 50, 255, 200, 100, 50, 0};
  ASSERT_TRUE(png_image_write_to_file(&png, (dir_.path() + "/alpha.png").c_str(), 0, rgba, 0, nullptr));
  RgbImage alpha;
  ASSERT_TRUE(read_image(dir_.path() + "/alpha.png", &alpha, &error)) << error;
  EXPECT_EQ(alpha.pixels, (std::vector<uint8_t>{200, 100, 50, 0, 0, 0}));
}

TEST_F(Tool, ReplayOfTheLibrarysOwnDumpsIsIdentical) {
  write_inputs(bracket(64, 48, tavo::scene::Layout::kSemiPlanar));
  // The dump directory does not exist yet: the tool creates it.
  const ToolRun fused = run_tool(dir_.path(), "fuse in0.yuv in1.yuv in2.yuv -o out.yuv --size 64x48 --layout "
                                          "YVU420_SEMIPLANAR --prop saveinput=yes --prop saveoutput=yes --dump-dir dumps");
  ASSERT_EQ(fused.exit_code, 0) << fused.err;
  std::vector<std::string> outputs;
  for (const auto& entry : fs::directory_iterator(dir_.path() + "/dumps")) {
    if (entry.path().string().ends_with("_hdr.yuv")) outputs.push_back(entry.path().string());
  }
  ASSERT_EQ(outputs.size(), 1u);

  ToolRun replay = run_tool(dir_.path(), "replay dumps --out-dir replayed");
  EXPECT_EQ(replay.exit_code, 0) << replay.err;
  const std::string progress = line_starting(replay.out, "[1/1] IMG_64x48YVU420_SEMIPLANAR_");
  EXPECT_EQ(progress.size(), std::string("[1/1] IMG_64x48YVU420_SEMIPLANAR_20180823_090812: identical").size())
      << replay.out;
  EXPECT_TRUE(progress.ends_with(": identical")) << replay.out;
  EXPECT_NE(replay.out.find("replayed 1 captures: 1 identical, 0 different, 0 without output, 0 failed\n"),
            std::string::npos);

  // Captures of one name in two directories: the second result is kept beside the first.
  fs::copy(dir_.path() + "/dumps", dir_.path() + "/again");
  replay = run_tool(dir_.path(), "replay dumps again --out-dir replayed");
  EXPECT_EQ(replay.exit_code, 0) << replay.err;
  EXPECT_TRUE(line_starting(replay.out, "[2/2] ").ends_with(
      ": identical (an earlier capture has this name; result in replayed/" +
      progress.substr(6, progress.find(':') - 6) + "_replay.2.yuv)"))
      << replay.out;
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path() + "/replayed"), fs::directory_iterator{}), 2);
}

// A capture whose dumped output differs from the replay in known samples:
// each plane's count, largest difference and PSNR are reported (U and V taken
// out of the V,U pairs), the picture marks exactly the pixels concerned (red
// where the luma differs, cyan where only the chroma of the pixel's 2x2 block
// does) over the dimmed luma, and equal outputs get no picture.
TEST_F(Tool, ReplayExplainsADifferencePerPlaneAndDrawsWhereItLies) {
  const std::string capture = "IMG_64x48YVU420_SEMIPLANAR_20180823_090812", d = dir_.path() + "/";
  const auto frames = bracket(64, 48, tavo::scene::Layout::kSemiPlanar);
  for (int k = 0; k < 3; ++k) write_all(d + capture + "_" + std::to_string(k) + ".yuv", frames[k]);
  const std::vector<uint8_t> fused = fuse_here(frames, 64, 48, "YVU420_SEMIPLANAR");
  const std::string picture = d + capture + "_replay_diff.png";
  const std::string y0 = "    Y  0 of 3072 samples differ, largest 0, PSNR inf\n";
  const std::string u0 = "    U  0 of 768 samples differ, largest 0, PSNR inf\n";
  const std::string v3 = "    V  1 of 768 samples differ, largest 3, PSNR 67.44 dB\n";
  using Pixels = std::vector<std::pair<int, int>>;
  struct Case {
    std::vector<std::pair<size_t, int>> changes;  // byte of the dumped output, by how much
    std::string report;                           // after ": "
    Pixels red, cyan;
  } cases[] = {
      {{}, "identical\n", {}, {}},
      // Luma at (5,3) and (40,20).
      {{{197, 7}, {1320, -2}},
       "2 bytes differ, first at byte 197\n    Y  2 of 3072 samples differ, largest 7, PSNR 65.76 dB\n" + u0 +
           "    V  0 of 768 samples differ, largest 0, PSNR inf\n",
       {{5, 3}, {40, 20}},
       {}},
      // U of the block at (2,0), V of the block at (20,12).
      {{{3075, -4}, {3476, 3}},
       "2 bytes differ, first at byte 3075\n" + y0 + "    U  1 of 768 samples differ, largest 4, PSNR 64.94 dB\n" + v3,
       {},
       {{2, 0}, {3, 0}, {2, 1}, {3, 1}, {20, 12}, {21, 12}, {20, 13}, {21, 13}}},
      // Luma and V in the block at (20,12): red wins.
      {{{788, 5}, {3476, 3}},
       "2 bytes differ, first at byte 788\n    Y  1 of 3072 samples differ, largest 5, PSNR 69.03 dB\n" + u0 + v3,
       {{20, 12}},
       {{21, 12}, {20, 13}, {21, 13}}},
  };
  for (const Case& c : cases) {
    std::vector<uint8_t> phone = fused;
    for (const auto& [at, by] : c.changes) {
      const int v = phone[at] + by;
      phone[at] = static_cast<uint8_t>(v >= 0 && v <= 255 ? v : phone[at] - by);  // |difference| = |by|
    }
    write_all(d + capture + "_hdr.yuv", phone);
    fs::remove(picture);
    const ToolRun run = run_tool(dir_.path(), "replay " + capture);
    const std::string where = c.report.substr(0, c.report.find('\n'));
    EXPECT_EQ(run.exit_code, c.changes.empty() ? 0 : 6) << where << "\n" << run.err;
    EXPECT_NE(run.out.find("[1/1] " + capture + ": " + c.report), std::string::npos) << run.out;
    if (c.changes.empty()) {
      EXPECT_FALSE(fs::exists(picture));
      EXPECT_EQ(run.out.find("worst capture"), std::string::npos) << run.out;
      continue;
    }
    EXPECT_NE(run.out.find("    difference picture " + capture + "_replay_diff.png\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\nworst capture: " + capture + ", 2 samples differ ("), std::string::npos) << run.out;
    RgbImage diff;
    std::string error;
    ASSERT_TRUE(read_image(picture, &diff, &error)) << error;
    ASSERT_EQ(diff.pixels.size(), 64u * 48 * 3);
    // Every pixel is the dimmed luma except the marked ones.
    Pixels red, cyan;
    for (int y = 0; y < 48; ++y) {
      for (int x = 0; x < 64; ++x) {
        const uint8_t* p = &diff.pixels[(y * 64 + x) * 3];
        const uint8_t grey = phone[y * 64 + x] / 2;
        if (p[0] == 255 && p[1] == 0 && p[2] == 0) {
          red.push_back({x, y});
        } else if (p[0] == 0 && p[1] == 255 && p[2] == 255) {
          cyan.push_back({x, y});
        } else {
          EXPECT_TRUE(p[0] == grey && p[1] == grey && p[2] == grey) << where << ": at " << x << "," << y;
        }
      }
    }
    EXPECT_EQ(red, c.red) << where;
    EXPECT_EQ(cyan, c.cyan) << where;
  }
  // A picture name that links to an input: refused in one line, the input kept.
  fs::remove(picture);
  fs::create_symlink(capture + "_0.yuv", picture);
  const ToolRun refused = run_tool(dir_.path(), "replay " + capture);
  EXPECT_EQ(refused.exit_code, 3);
  EXPECT_EQ(refused.err, "tavo-hdr: " + capture +
                             "_replay_diff.png is one of the inputs; the tool never writes over an input\n");
  EXPECT_EQ(read_all(d + capture + "_0.yuv"), frames[0]);
}

// A copy of the PNG `from` whose header claims another size (its CRC fixed).
void write_png_claiming(const std::string& from, const std::string& to, uint32_t width, uint32_t height) {
  std::vector<uint8_t> png = read_all(from);
  for (int i = 0; i < 4; ++i) {
    png[16 + i] = static_cast<uint8_t>(width >> (24 - 8 * i));
    png[20 + i] = static_cast<uint8_t>(height >> (24 - 8 * i));
  }
  const uLong crc = crc32(0, &png[12], 17);  // "IHDR" and its 13 bytes
  for (int i = 0; i < 4; ++i) png[29 + i] = static_cast<uint8_t>(crc >> (24 - 8 * i));
  write_all(to, png);
}

TEST_F(Tool, RefusesWithItsExitCodeAndOneLineAndLeavesEveryFileAsItWas) {
  const auto frames = bracket(64, 48, tavo::scene::Layout::kPlanar);
  write_inputs(frames);
  const std::string d = dir_.path() + "/";
  write_all(d + "short.yuv", std::vector<uint8_t>(100, 7));
  mkfifo((d + "fifo").c_str(), 0644);
  fs::create_hard_link(d + "in1.yuv", d + "same.yuv");
  // A capture whose result name is a link to one of its frames.
  const std::string capture = "IMG_64x48YUV420_PLANAR_20180823_090812";
  fs::create_directory(d + "cap");
  for (const char* k : {"0", "1", "2"}) fs::copy_file(d + "in" + k + ".yuv", d + "cap/" + capture + "_" + k + ".yuv");
  fs::create_symlink(capture + "_1.yuv", d + "cap/" + capture + "_replay.yuv");
  std::string error;
  for (const auto& [name, w] : {std::pair{"a.png", 64}, {"b.png", 64}, {"wide.png", 72}, {"odd.png", 60}}) {
    ASSERT_TRUE(write_image(d + name, {w, 48, std::vector<uint8_t>(static_cast<size_t>(w) * 48 * 3, 90)}, &error));
  }
  ASSERT_TRUE(write_image(d + "whole.jpg", rgb_of(frames[1], 64, 48), &error));
  std::vector<uint8_t> bytes = read_all(d + "whole.jpg");
  write_all(d + "cut.jpg", std::vector<uint8_t>(bytes.begin(), bytes.begin() + bytes.size() * 2 / 3));
  bytes = read_all(d + "a.png");
  bytes[bytes.size() - 17] ^= 0x55;  // the last byte of the image data
  write_all(d + "bad.png", bytes);
  write_png_claiming(d + "a.png", d + "huge.png", 100000, 100000);
  write_png_claiming(d + "a.png", d + "big.png", 16384, 8192);

  const std::string raw = "fuse in0.yuv in1.yuv in2.yuv -o out.yuv ";
  struct Case {
    std::string args;
    int exit_code;
    std::string message;
    rlim_t memory = 0;
  } cases[] = {
      {"fuse in0.yuv gone.yuv in2.yuv -o out.yuv --size 64x48", 3, "cannot open gone.yuv: No such file"},
      {"fuse in0.yuv short.yuv in2.yuv -o out.yuv --size 64x48", 3,
       "short.yuv is 100 bytes, a 64x48 frame is 4608 (W*H*3/2)"},
      {"fuse fifo in1.yuv in2.yuv -o out.yuv --size 64x48", 3, "fifo is not a regular file"},
      {raw + "--size 60x48", 2, "width 60 is not a multiple of 8"},
      {raw + "--size 64x48 --layout NV21", 2, "unknown layout 'NV21'"},
      {raw, 2, "raw frames need --size"},
      {raw + "--size 64x48 --stop", 5, "stopped before it finished (result 1)"},
      {raw + "--size 64x48 --dump-dir short.yuv/dumps", 3,
       "cannot create the dump directory short.yuv/dumps: Not a directory"},
      {"fuse in0.yuv in1.yuv in2.yuv -o same.yuv --size 64x48", 3, "same.yuv is one of the inputs"},
      {"fuse in0.yuv in1.yuv in2.yuv -o fifo --size 64x48", 3, "fifo exists and is not a regular file"},
      {"fuse a.png b.png a.png -o b.png", 3, "b.png is one of the inputs"},
      {"fuse a.png b.png wide.png -o out.png", 3, "images of different sizes: a.png is 64x48, wide.png is 72x48"},
      {"fuse odd.png odd.png odd.png -o out.png", 3, "odd.png: width 60 is not a multiple of 8"},
      {"fuse a.png b.png in0.yuv -o out.png", 2, "give three image files"},
      {"fuse cut.jpg a.png b.png -o out.png", 3, "cannot decode cut.jpg: Premature end of JPEG file"},
      {"fuse a.png bad.png b.png -o out.png", 3, "cannot decode bad.png: "},
      {"fuse huge.png a.png b.png -o out.png", 3, "huge.png: 100000x100000 is more than the library's 213726991 pixels"},
// Sanitizers need more address space; under an emulator the limit would bound
// the emulator's own mappings too.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(TAVO_HDR_TOOL_EMULATOR)
      {"fuse big.png a.png b.png -o out.png", 4, "out of memory in fuse", 300 << 20},
#endif
      {"demo --size 16384x16384", 2, "16384x16384 is more than the library's"},
      {"replay cap", 3, capture + "_replay.yuv is one of the inputs"},
      {"replay holiday", 3, "holiday does not exist"},
      {"replay in0.yuv", 2, "not a capture name"},
      {"sharpen", 2, "unknown command 'sharpen'"},
  };
  const auto files = snapshot(dir_.path());
  for (const Case& c : cases) {
    const ToolRun run = run_tool(dir_.path(), c.args, 0, "", c.memory);
    EXPECT_EQ(run.exit_code, c.exit_code) << c.args << "\n" << run.err;
    // One line, the tool's (then the usage for a bad command line): no warning
    // of an image library, no log.
    const size_t eol = run.err.find('\n');
    EXPECT_TRUE(run.err.starts_with("tavo-hdr: ")) << c.args << "\n" << run.err;
    EXPECT_NE(run.err.substr(0, eol).find(c.message), std::string::npos) << c.args << "\n" << run.err;
    EXPECT_TRUE(eol + 1 == run.err.size() || run.err.substr(eol + 1) == kUsage) << c.args << "\n" << run.err;
    EXPECT_EQ(snapshot(dir_.path()), files) << c.args;
  }
}

// A signal outside a capture ends the tool at once; during a replay it ends it
// after the current capture, with the summary. Either way the exit code is 128
// + the signal and no temporary file (an output, the property file) is left.
TEST_F(Tool, SignalsStopTheToolWithTheirExitCodeAndLeaveNoTemporaryFile) {
  const std::string capture = "IMG_512x384YUV420_PLANAR_20180823_090812";
  std::string fifty;
  for (int k = 0; k < 3; ++k) {
    write_all(dir_.path() + "/" + capture + "_" + std::to_string(k) + ".yuv",
              tavo::test::random_bytes(512 * 384 * 3 / 2, k));
  }
  for (int i = 0; i < 50; ++i) fifty += " " + capture;
  struct Case {
    std::string args;
    int signal;
    const char* when;  // sent once stdout shows this
    const char* out;
  } cases[] = {
      {"demo --size 4096x2048 --prop a=b --out-dir pictures", SIGTERM, "scene:", "scene:"},
      {"replay" + fifty + " --out-dir replayed --prop a=b", SIGINT, "[1/50]", " of 50 captures (stopped by SIGINT): "},
  };
  for (const Case& c : cases) {
    const ToolRun run = run_tool(dir_.path(), c.args, c.signal, c.when);
    EXPECT_EQ(run.exit_code, 128 + c.signal) << c.args << "\n" << run.err;
    EXPECT_EQ(run.err, std::string("tavo-hdr: interrupted by ") + (c.signal == SIGINT ? "SIGINT\n" : "SIGTERM\n"));
    EXPECT_NE(run.out.find(c.out), std::string::npos) << run.out;
    for (const auto& [name, content] : snapshot(dir_.path())) {
      const std::string base = fs::path(name).filename().string();
      EXPECT_FALSE(base.starts_with(".tavo-hdr-") || base.starts_with("tavo-hdr-props-")) << c.args << ": " << name;
    }
  }
  EXPECT_FALSE(fs::exists(dir_.path() + "/pictures/demo_result.png"));
}

TEST_F(Tool, DemoWritesTheResultAndTheContactSheetAndFindsTheShiftsItApplied) {
  const ToolRun run = run_tool(dir_.path(), "demo --size 192x128 --out-dir pictures");
  ASSERT_EQ(run.exit_code, 0) << run.err;
  EXPECT_NE(run.out.find("frame 0 (dark):    applied dx=+6 dy=-4, found x=+6 y=-4: agree"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("applied dx=-4 dy=+2, found x=-4 y=+2: agree"), std::string::npos);
  RgbImage result, sheet;
  std::string error;
  ASSERT_TRUE(read_image(dir_.path() + "/pictures/demo_result.png", &result, &error)) << error;
  ASSERT_TRUE(read_image(dir_.path() + "/pictures/demo_contact_sheet.png", &sheet, &error)) << error;
  EXPECT_EQ(result.width, 192);
  EXPECT_EQ(result.height, 128);
  EXPECT_GT(sheet.width, 4 * 96);
}

}  // namespace

#endif  // TAVO_HDR_TOOL_PATH
