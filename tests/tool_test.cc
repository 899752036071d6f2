// tavo-hdr run as a user runs it: fused bytes equal the library's, image files
// round-trip, dumps the library wrote replay identically, and every refusal
// has its exit code, its one-line message and leaves no output behind.
#ifdef TAVO_HDR_TOOL_PATH

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"
#include "tools/image_io.h"
#include "tools/raw_io.h"
#include "tools/scene/scene.h"
#include "tools/yuv_convert.h"

namespace fs = std::filesystem;
using namespace tavo::tool;

namespace {

struct ToolRun {
  int exit_code = -1;
  std::string out, err;
};

// Runs the tool in `dir` with `args` (no blanks inside an argument).
ToolRun run_tool(const std::string& dir, const std::string& args) {
  const std::string err_path = dir + "/.stderr";
  const std::string command = "cd " + dir + " && " TAVO_HDR_TOOL_PATH " " + args + " 2>" + err_path;
  ToolRun run;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return run;
  char buffer[4096];
  size_t n = 0;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, n);
  const int status = pclose(pipe);
  run.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  std::ifstream err(err_path);
  run.err.assign(std::istreambuf_iterator<char>(err), {});
  fs::remove(err_path);
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

// "<stage>   12.3 ms": the stage name, blanks, a number with one decimal, " ms".
bool stage_line_ok(const std::string& line, const std::string& stage) {
  if (!line.starts_with(stage + " ") || !line.ends_with(" ms")) return false;
  const std::string number = line.substr(stage.size(), line.size() - stage.size() - 3);
  const std::string digits = number.substr(std::min(number.find_first_not_of(' '), number.size()));
  char* end = nullptr;
  strtod(digits.c_str(), &end);
  return *end == '\0' && digits.size() >= 3 && digits[digits.size() - 2] == '.';
}

std::vector<uint8_t> read_all(const std::string& path) {
  std::vector<uint8_t> bytes;
  std::string error;
  read_file(path, &bytes, &error);
  return bytes;
}

void write_all(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::string error;
  ASSERT_TRUE(write_file_atomic(path, bytes.data(), bytes.size(), &error)) << error;
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
  const int32_t w = 96, h = 64;
  for (auto layout : {tavo::scene::Layout::kPlanar, tavo::scene::Layout::kSemiPlanar}) {
    const std::string name = tavo::scene::layout_name(layout);
    const auto frames = bracket(w, h, layout);
    write_inputs(frames);
    const ToolRun run = run_tool(dir_.path(), "fuse in0.yuv in1.yuv in2.yuv -o out.yuv --size 96x64 --layout " + name);
    ASSERT_EQ(run.exit_code, 0) << run.err;
    EXPECT_EQ(read_all(dir_.path() + "/out.yuv"), fuse_here(frames, w, h, name.c_str())) << name;
    for (const char* stage : {"registration", "fusion", "resize", "total"}) {
      EXPECT_TRUE(stage_line_ok(line_starting(run.out, stage), stage)) << stage << " in:\n" << run.out;
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
  for (const char* ext : {"png", "jpg"}) {
    for (int k = 0; k < 3; ++k) {
      RgbImage image{w, h, std::vector<uint8_t>(w * h * 3)};
      yuv420_to_rgb(frames[k].data(), w, h, ChromaLayout::kPlanar, image.pixels.data());
      std::string error;
      ASSERT_TRUE(write_image(dir_.path() + "/in" + std::to_string(k) + "." + ext, image, &error)) << error;
    }
    const std::string e = ext;
    const ToolRun run = run_tool(dir_.path(), "fuse in0." + e + " in1." + e + " in2." + e + " -o fused." + e);
    ASSERT_EQ(run.exit_code, 0) << run.err;
    RgbImage fused;
    std::string error;
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
    const std::vector<uint8_t> out = fuse_here(yuv, w, h, "YUV420_PLANAR");
    std::vector<uint8_t> expected(fused.pixels.size());
    yuv420_to_rgb(out.data(), w, h, ChromaLayout::kPlanar, expected.data());
    EXPECT_EQ(fused.pixels, expected);
  }
}

TEST_F(Tool, ReplayOfTheLibrarysOwnDumpsIsIdenticalAndFindsTamperedBytes) {
  const auto frames = bracket(64, 48, tavo::scene::Layout::kSemiPlanar);
  write_inputs(frames);
  fs::create_directory(dir_.path() + "/dumps");
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
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path() + "/replayed"), fs::directory_iterator{}), 1);

  std::vector<uint8_t> tampered = read_all(outputs[0]);
  tampered[100] ^= 1;
  tampered[2000] ^= 1;
  write_all(outputs[0], tampered);
  replay = run_tool(dir_.path(), "replay dumps");
  EXPECT_EQ(replay.exit_code, 6);
  EXPECT_NE(replay.out.find(": 2 bytes differ, first at byte 100\n"), std::string::npos) << replay.out;
  EXPECT_NE(replay.out.find("0 identical, 1 different"), std::string::npos);
}

TEST_F(Tool, RefusesWithItsExitCodeAndOneLineAndLeavesNoOutput) {
  const auto frames = bracket(64, 48, tavo::scene::Layout::kPlanar);
  write_inputs(frames);
  write_all(dir_.path() + "/short.yuv", std::vector<uint8_t>(100, 7));
  for (const auto& [name, w] : {std::pair{"a.png", 64}, {"b.png", 64}, {"wide.png", 72}, {"odd.png", 60}}) {
    RgbImage image{w, 48, std::vector<uint8_t>(static_cast<size_t>(w) * 48 * 3, 90)};
    std::string error;
    ASSERT_TRUE(write_image(dir_.path() + "/" + name, image, &error));
  }
  const std::string raw = "fuse in0.yuv in1.yuv in2.yuv -o out.yuv ";
  struct Case {
    std::string args;
    int exit_code;
    const char* message;
  } cases[] = {
      {"fuse in0.yuv gone.yuv in2.yuv -o out.yuv --size 64x48", 3, "cannot open gone.yuv: No such file"},
      {"fuse in0.yuv short.yuv in2.yuv -o out.yuv --size 64x48", 3,
       "short.yuv is 100 bytes, a 64x48 frame is 4608 (W*H*3/2)"},
      {raw + "--size 60x48", 2, "width 60 is not a multiple of 8"},
      {raw + "--size 64x47", 2, "height 47 is odd"},
      {raw + "--size 64x48 --layout NV21", 2, "unknown layout 'NV21'"},
      {raw, 2, "raw frames need --size"},
      {"fuse a.png b.png wide.png -o out.png", 3, "images of different sizes: a.png is 64x48, wide.png is 72x48"},
      {"fuse odd.png odd.png odd.png -o out.png", 3, "odd.png: width 60 is not a multiple of 8"},
      {"fuse a.png b.png in0.yuv -o out.png", 2, "give three image files"},
      {raw + "--size 64x48 --prop saveinput=yes --dump-dir missing", 4, "could not fuse the frames (result -1"},
      {raw + "--size 64x48 --stop", 5, "stopped before it finished (result 1)"},
      {"replay holiday", 2, "not a capture name"},
      {"sharpen", 2, "unknown command 'sharpen'"},
  };
  for (const Case& c : cases) {
    const ToolRun run = run_tool(dir_.path(), c.args);
    EXPECT_EQ(run.exit_code, c.exit_code) << c.args << "\n" << run.err;
    // The tool's own line; a library failure shows the library's log first.
    const size_t at = run.err.find("tavo-hdr: ");
    ASSERT_NE(at, std::string::npos) << c.args;
    const std::string line = run.err.substr(at, run.err.find('\n', at) - at);
    EXPECT_NE(line.find(c.message), std::string::npos) << c.args << "\n" << line;
    EXPECT_FALSE(fs::exists(dir_.path() + "/out.yuv")) << c.args;
    EXPECT_FALSE(fs::exists(dir_.path() + "/out.png")) << c.args;
    for (const auto& entry : fs::directory_iterator(dir_.path())) {
      EXPECT_FALSE(entry.path().filename().string().starts_with(".out")) << c.args << ": " << entry.path();
    }
  }
  // The failing library call says why.
  EXPECT_NE(run_tool(dir_.path(), raw + "--size 64x48 --prop saveinput=yes --dump-dir missing").err.find("fopen img0 fail!"),
            std::string::npos);
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
