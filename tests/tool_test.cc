// tavo-hdr as a user meets it: its results are the library's bytes, dumps
// replay identically and a difference is explained, every refusal has its exit
// code and one line and leaves every file as it was, a failed capture shows the
// library's log, and a signal stops it without leaving a temporary file.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "api/capture_limits.h"
#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"
#include "tools/cli_args.h"
#include "tools/dump_names.h"
#include "tools/frame_diff.h"
#include "tools/output_file.h"
#include "tools/raw_io.h"
#include "tools/scene/scene.h"
#include "tools/staged_capture.h"
#include "tools/yuv_convert.h"
#ifdef TAVO_HDR_TOOL_PATH
#include <png.h>

#include "tools/image_io.h"
#endif

namespace fs = std::filesystem;
using namespace tavo::tool;
using tavo::ChromaLayout;
using tavo::test::bracket;

namespace {

// Every entry under `dir`: regular files by their bytes, links by target,
// anything else by type.
std::map<std::string, std::string> snapshot(const std::string& dir) {
  std::map<std::string, std::string> entries;
  for (const auto& e : fs::recursive_directory_iterator(dir)) {
    const fs::file_status status = e.symlink_status();
    std::string& value = entries[e.path().lexically_relative(dir).string()];
    if (fs::is_symlink(status)) {
      value = "-> " + fs::read_symlink(e.path()).string();
    } else if (fs::is_regular_file(status)) {
      std::ifstream in(e.path(), std::ios::binary);
      value = std::string(std::istreambuf_iterator<char>(in), {});
    } else {
      value = "type " + std::to_string(static_cast<int>(status.type()));  // never opened: a FIFO would block
    }
  }
  return entries;
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

class Tool : public tavo::test::PoolTest {
 protected:
  std::vector<uint8_t> fuse_here(const std::array<std::vector<uint8_t>, 3>& f, int32_t w, int32_t h,
                                 const std::string& layout) {
    std::vector<uint8_t> out(f[0].size());
    EXPECT_EQ(HDR_Function(f[0].data(), f[1].data(), f[2].data(), out.data(), h, w, layout.c_str()), 0);
    return out;
  }
  tavo::test::TempDir dir_;
};

// The demo's stage-by-stage capture through the exported operations against
// HDR_Function: one, two, three and four registration levels, both layouts.
TEST_F(Tool, StagedCaptureGivesHdrFunctionsBytes) {
  const tavo::test::ScopedTickingClock clock;  // no time limit on a slow machine
  for (const auto& [w, h] : {std::pair{8, 2}, {64, 48}, {200, 120}, {328, 246}}) {
    for (auto layout : {ChromaLayout::kPlanar, ChromaLayout::kSemiPlanar}) {
      const std::string name = tavo::layout_name(layout);
      const auto f = bracket(w, h, name, 9);
      const uint8_t* frames[3] = {f[0].data(), f[1].data(), f[2].data()};
      std::vector<uint8_t> staged(f[0].size(), 0xa5);
      StagedCapture result;
      ASSERT_TRUE(run_staged_capture(frames, w, h, name.c_str(), staged.data(), &result));
      EXPECT_EQ(staged, fuse_here(f, w, h, name)) << w << "x" << h << " " << name;
    }
  }
}

// A 2x2 block of one colour, full-range BT.601: U before V in the planar
// layout, V before U in the semi-planar one.
TEST(ToolParts, ColoursConvertToFullRangeYuv) {
  const struct {
    uint8_t r, g, b, y, u, v;
  } cases[] = {{0, 0, 0, 0, 128, 128},   {255, 255, 255, 255, 128, 128}, {255, 0, 0, 77, 85, 255},
               {0, 255, 0, 149, 43, 21}, {0, 0, 255, 29, 255, 107}};
  for (const auto& c : cases) {
    std::vector<uint8_t> rgb, planar(6), semi(6);
    for (int i = 0; i < 4; ++i) rgb.insert(rgb.end(), {c.r, c.g, c.b});
    rgb_to_yuv420(rgb.data(), 2, 2, ChromaLayout::kPlanar, planar.data());
    rgb_to_yuv420(rgb.data(), 2, 2, ChromaLayout::kSemiPlanar, semi.data());
    EXPECT_EQ(planar, (std::vector<uint8_t>{c.y, c.y, c.y, c.y, c.u, c.v})) << +c.r << "," << +c.g << "," << +c.b;
    EXPECT_EQ(semi, (std::vector<uint8_t>{c.y, c.y, c.y, c.y, c.v, c.u}));
  }
}

// The first chroma byte of a frame is U in the planar layout, V in the
// semi-planar one (V,U pairs); replay's report counts it in that plane.
TEST(ToolParts, FrameDifferencesCountChromaInItsPlane) {
  const std::vector<uint8_t> theirs(8 * 4 * 3 / 2, 100);
  std::vector<uint8_t> ours = theirs;
  ours[32] = 103;
  for (const auto& [layout, plane] : {std::pair{ChromaLayout::kPlanar, 1}, {ChromaLayout::kSemiPlanar, 2}}) {
    const FrameDiff diff = diff_frames(ours.data(), theirs.data(), 8, 4, layout);
    EXPECT_EQ(diff.plane[plane].differing, 1u);
    EXPECT_EQ(diff.differing(), 1u);
  }
}

// What replay reads: the complete captures of a directory in time order, and
// the output of the same size and layout the library dumped a moment after
// the inputs.
TEST(ToolParts, CapturesOfADirectoryAndTheirDumpedOutputs) {
  tavo::test::TempDir dir;
  const std::string d = dir.path() + "/", a = "IMG_64x48YUV420_PLANAR_20180823_090812",
                    b = "IMG_64x48YUV420_PLANAR_20180823_090820";
  for (const std::string& file :
       {a + "_0.yuv", a + "_1.yuv", a + "_2.yuv", b + "_0.yuv", b + "_1.yuv", b + "_2.yuv",
        std::string("IMG_64x48YUV420_PLANAR_20180823_090830_0.yuv"),          // no _1, _2: no capture
        std::string("IMG_64x48YUV420_PLANAR_20180823_090813_hdr.yuv"),        // a's output
        std::string("IMG_64x48YVU420_SEMIPLANAR_20180823_090821_hdr.yuv")}) {  // another layout
    std::ofstream(d + file) << "x";
  }
  std::vector<Capture> captures;
  std::string error;
  ASSERT_EQ(collect_captures({dir.path()}, &captures, &error), Collected::kCollected) << error;
  ASSERT_EQ(captures.size(), 2u);
  EXPECT_EQ(captures[0].prefix, d + a);
  EXPECT_EQ(captures[1].prefix, d + b);
  EXPECT_EQ(find_dumped_output(captures[0]), d + "IMG_64x48YUV420_PLANAR_20180823_090813_hdr.yuv");
  EXPECT_EQ(find_dumped_output(captures[1]), "");
}

// The index of a directory's names matches outputs as the rule does name by
// name (the earliest output of the capture's kind stamped at or after its
// inputs, before the next capture's inputs of that kind): captures of three
// kinds 0 to 5 s apart, outputs stamped 0 to 2 s after their inputs or none.
TEST(ToolParts, TheIndexOfADirectoryMatchesOutputsAsTheRuleDoes) {
  const char* kinds[] = {"64x48YUV420_PLANAR", "64x48YVU420_SEMIPLANAR", "128x96YUV420_PLANAR"};
  const auto draw = tavo::test::random_samples<int>(3 * 600, 5, 0, 5);
  std::vector<std::string> names;
  for (int i = 0, second = 0; i < 600; ++i) {
    const auto name = [&](int s, const char* suffix) {
      char stamp[32];
      snprintf(stamp, sizeof stamp, "_20180823_%02d%02d%02d", s / 3600, s / 60 % 60, s % 60);
      return "IMG_" + std::string(kinds[draw[3 * i + 1] % 3]) + stamp + suffix;
    };
    second += draw[3 * i];
    names.push_back(name(second, "_0.yuv"));
    if (draw[3 * i + 2] < 3) names.push_back(name(second + draw[3 * i + 2], "_hdr.yuv"));
  }
  std::vector<std::pair<bool, DumpName>> dumps;  // (an output?, its name)
  for (const std::string& n : names) {
    const bool output = n.ends_with("_hdr.yuv");
    dumps.emplace_back(output, DumpName{});
    ASSERT_TRUE(parse_dump_name(n.substr(0, n.size() - (output ? 8 : 6)), &dumps.back().second)) << n;
  }
  const DumpIndex index(names);
  int matched = 0;
  for (const auto& [is_output, capture] : dumps) {
    if (is_output) continue;
    const auto same_kind = [&](const DumpName& d) {
      return d.width == capture.width && d.height == capture.height && d.layout == capture.layout;
    };
    std::string next = "~", best, best_stamp;
    for (const auto& [output, d] : dumps) {
      if (!output && same_kind(d) && d.stamp > capture.stamp && d.stamp < next) next = d.stamp;
    }
    for (size_t k = 0; k < dumps.size(); ++k) {
      const auto& [output, d] = dumps[k];
      if (output && same_kind(d) && d.stamp >= capture.stamp && d.stamp < next &&
          (best.empty() || d.stamp < best_stamp)) {
        best = names[k];
        best_stamp = d.stamp;
      }
    }
    EXPECT_EQ(index.output_of(capture), best) << capture.size << capture.layout << "_" << capture.stamp;
    matched += !best.empty();
  }
  EXPECT_GT(matched, 200);
}

// The public header's limits, which the tool checks before it reads a pixel,
// and the library's own check accept and refuse the same sizes.
TEST(ToolParts, HeaderSizeLimitsAgreeWithTheLibrarysCheck) {
  const struct {
    int32_t width, height;
    const char* problem;  // "" when accepted
  } cases[] = {
      {TAVO_HDR_MIN_WIDTH, TAVO_HDR_MIN_HEIGHT, ""},
      {64, 47, "height 47 is odd"},
      {8, 26715872, ""},  // the tallest and the widest at the limit
      {106863488, 2, ""},
      {6286088, 34, "6286088x34 is more than the library's 213726991 pixels"},
  };
  for (const auto& c : cases) {
    const std::string problem = frame_size_problem(c.width, c.height);
    EXPECT_NE(problem.find(c.problem), std::string::npos) << c.width << "x" << c.height;
    EXPECT_EQ(problem.empty(), c.problem[0] == '\0') << c.width << "x" << c.height;
    EXPECT_EQ(tavo::capture_size_supported(c.width, c.height), c.problem[0] == '\0') << c.width << "x" << c.height;
  }
}

#ifdef TAVO_HDR_TOOL_PATH

struct ToolRun {
  int exit_code = -1;  // 128 + the signal when one killed it
  std::string out, err;
};

// A resource limit of the tool's process: RLIMIT_AS or RLIMIT_FSIZE, and its
// value (0: none).
using Limit = std::pair<int, rlim_t>;

// The emulator ctest runs the suite under, if any (a cross build's, or a
// processor model without AVX): qemu-user does not follow an exec into another
// binary by itself.
std::string tool_emulator() {
  const char* e = getenv("TAVO_HDR_TOOL_EMULATOR");
  return e != nullptr ? e : "";
}

// Runs the tool (through the emulator, if any) in `dir` with `args` (split at
// spaces; a word ">FILE" sends stdout to FILE) and TMPDIR=dir. With `signal`,
// sends it once stdout shows `when`; SIGPIPE: the reader closes the pipe then
// instead. With `limit`, the tool runs under that limit.
ToolRun run_tool(const std::string& dir, const std::string& args, int signal = 0, const std::string& when = "",
                 Limit limit = {}) {
  std::vector<std::string> words, env{"TMPDIR=" + dir};
  std::istringstream emulator(tool_emulator());
  for (std::string word; emulator >> word;) words.push_back(word);
  words.push_back(TAVO_HDR_TOOL_PATH);
  std::istringstream split(args);
  int redirect = -1;
  for (std::string word; std::getline(split, word, ' ');) {
    if (word.starts_with(">")) redirect = open(word.c_str() + 1, O_WRONLY | O_CLOEXEC);
    if (!word.empty() && !word.starts_with(">")) words.push_back(word);
  }
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
    const rlimit value{limit.second, limit.second};
    if (dup2(redirect >= 0 ? redirect : out[1], 1) == 1 && dup2(err, 2) == 2 &&
        (limit.second == 0 || setrlimit(limit.first, &value) == 0) && chdir(dir.c_str()) == 0) {
      execve(argv[0], argv.data(), envp.data());
    }
    _exit(127);
  }
  close(out[1]);
  if (redirect >= 0) close(redirect);
  ToolRun run;
  char buffer[4096];
  for (;;) {
    if (signal != 0 && run.out.find(when) != std::string::npos) {
      if (signal == SIGPIPE) break;  // the reader goes away
      kill(pid, std::exchange(signal, 0));
    }
    const ssize_t n = read(out[0], buffer, sizeof buffer);
    if (n <= 0) break;
    run.out.append(buffer, static_cast<size_t>(n));
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

// tests/photo_tags.py in `dir`: phone photographs made, or their tags as
// Pillow reads them.
std::string photo_tags(const std::string& dir, const std::string& args) {
  FILE* p = popen(("cd '" + dir + "' && /usr/bin/python3 " TAVO_TEST_PHOTO_TAGS " " + args).c_str(), "r");
  std::string out;
  char buffer[4096];
  for (size_t n; p != nullptr && (n = fread(buffer, 1, sizeof buffer, p)) > 0;) out.append(buffer, n);
  EXPECT_TRUE(p != nullptr && pclose(p) == 0) << args;
  return out;
}

RgbImage rgb_of(const std::vector<uint8_t>& yuv, int32_t w, int32_t h) {
  RgbImage image{w, h, std::vector<uint8_t>(static_cast<size_t>(w) * h * 3)};
  yuv420_to_rgb(yuv.data(), w, h, ChromaLayout::kPlanar, image.pixels.data());
  return image;
}

// Raw frames in both layouts and lossless images fuse to the library's bytes;
// the capture's time is printed, the library's log only with --verbose.
TEST_F(Tool, FusesRawFramesAndImagesToTheLibrarysBytes) {
  const std::string d = dir_.path() + "/";
  for (auto layout : {ChromaLayout::kPlanar, ChromaLayout::kSemiPlanar}) {
    // The result is written through a link to an existing file, whose mode it keeps.
    const std::string name = tavo::layout_name(layout);
    const auto frames = bracket(96, 64, name, 9);
    for (int k = 0; k < 3; ++k) write_all(d + "in" + std::to_string(k) + ".yuv", frames[k]);
    write_all(d + name, {1, 2});
    fs::permissions(d + name, fs::perms(0640));
    fs::create_symlink(name, d + "link-" + name);
    const ToolRun run = run_tool(d, "fuse in0.yuv in1.yuv in2.yuv -o link-" + name + " --size 96x64 --layout " + name);
    ASSERT_EQ(run.exit_code, 0) << run.err;
    EXPECT_EQ(read_all(d + name), fuse_here(frames, 96, 64, name)) << name;
    EXPECT_EQ(fs::status(d + name).permissions(), fs::perms(0640));
    EXPECT_TRUE(std::regex_search(run.out, std::regex("(^|\n)capture +[0-9]+\\.[0-9] ms\n"))) << run.out;
    EXPECT_EQ(run.err, "");
  }
  const ToolRun verbose = run_tool(d, "fuse in0.yuv in1.yuv in2.yuv -o v.yuv --size 96x64 --verbose");
  EXPECT_NE(verbose.err.find("HDR_Function START."), std::string::npos) << verbose.err;

  const auto frames = bracket(64, 48, "YUV420_PLANAR", 9);
  std::array<std::vector<uint8_t>, 3> yuv;
  std::string error;
  for (int k = 0; k < 3; ++k) {
    const std::string in = d + "in" + std::to_string(k);
    ASSERT_TRUE(write_image(in + ".png", rgb_of(frames[k], 64, 48), &error) &&
                write_image(in + ".jpg", rgb_of(frames[k], 64, 48), &error));
    RgbImage read;  // the inputs as the tool converts them
    ASSERT_TRUE(read_image(in + ".png", &read, &error)) << error;
    yuv[k].resize(frames[k].size());
    rgb_to_yuv420(read.pixels.data(), 64, 48, ChromaLayout::kPlanar, yuv[k].data());
  }
  RgbImage fused;
  for (const std::string e : {"png", "jpg"}) {
    const ToolRun run = run_tool(d, "fuse in0." + e + " in1." + e + " in2." + e + " -o fused." + e);
    ASSERT_EQ(run.exit_code, 0) << run.err;
    ASSERT_TRUE(read_image(d + "fused." + e, &fused, &error)) << error;
    EXPECT_EQ(std::pair(fused.width, fused.height), std::pair(64, 48)) << e;
    EXPECT_TRUE(e != "png" || fused.pixels == rgb_of(fuse_here(yuv, 64, 48, "YUV420_PLANAR"), 64, 48).pixels);
  }
  // Alpha is composited over black: an opaque and a transparent pixel.
  png_image png{};
  png.version = PNG_IMAGE_VERSION;
  png.width = 2;
  png.height = 1;
  png.format = PNG_FORMAT_RGBA;
  const uint8_t rgba[] = {200, 100, 50, 255, 200, 100, 50, 0};
  ASSERT_TRUE(png_image_write_to_file(&png, (d + "alpha.png").c_str(), 0, rgba, 0, nullptr));
  ASSERT_TRUE(read_image(d + "alpha.png", &fused, &error)) << error;
  EXPECT_EQ(fused.pixels, (std::vector<uint8_t>{200, 100, 50, 0, 0, 0}));
}

// Phone photographs, given in any order: the tool orders them by EXIF
// exposure, else by mean luma, into the bytes of the bracket given dark,
// normal, bright with --order as-given; the result keeps the reference's EXIF
// (stating the result's pixel size), XMP (JPEG) and profile, or gets the sRGB
// chunk (PNG), as Pillow reads them.
TEST_F(Tool, PhotographsAreOrderedByExposureAndKeepTheReferencesTags) {
  const std::string d = dir_.path() + "/";
  photo_tags(d, "make dark.jpg 40 0.0025 6 normal.jpg 110 0.01 6 bright.jpg 200 0.04 6 "
                "lo.png 40 0 1 mid.png 110 0 1 hi.png 200 0 1");
  const std::string normal = std::regex_replace(photo_tags(d, "tags normal.jpg"),
                                                std::regex("0xa002 1920\nExif 0xa003 1080"), "0xa002 64\nExif 0xa003 48");
  ASSERT_NE(normal.find("0xa003 48\n"), std::string::npos) << normal;
  ASSERT_NE(normal.find("quantizer 2\n"), std::string::npos) << normal;
  const std::string by_exif = "dark dark.jpg, normal normal.jpg, bright bright.jpg (by EXIF exposure ";
  const std::string in_png = std::regex_replace(normal, std::regex("xmp [^\n]*\n|quantizer 2\n"), "");
  const struct {
    std::string args, output, order, tags, as_given;
  } cases[] = {
      {"normal.jpg dark.jpg bright.jpg", "out.jpg", by_exif, normal, "dark.jpg normal.jpg bright.jpg"},
      {"bright.jpg dark.jpg normal.jpg", "out.png", by_exif, in_png, "dark.jpg normal.jpg bright.jpg"},
      {"normal.jpg dark.jpg bright.jpg --quality 50", "q50.jpg", by_exif,
       std::regex_replace(normal, std::regex("quantizer 2"), "quantizer 16"), "dark.jpg normal.jpg bright.jpg --quality 50"},
      {"hi.png lo.png mid.png", "out.png", "dark lo.png, normal mid.png, bright hi.png (by mean luma ",
       "size 64x48\nicc none\nsrgb True\n", "lo.png mid.png hi.png"},
  };
  for (const auto& c : cases) {
    const ToolRun run = run_tool(d, "fuse " + c.args + " -o " + c.output);
    ASSERT_EQ(run.exit_code, 0) << c.args << "\n" << run.err;
    EXPECT_TRUE(run.out.starts_with(c.order)) << run.out;
    EXPECT_EQ(photo_tags(d, "tags " + c.output), c.tags) << c.args << " -o " << c.output;
    const ToolRun given = run_tool(d, "fuse " + c.as_given + " -o given-" + c.output + " --order as-given");
    ASSERT_EQ(given.exit_code, 0) << given.err;
    EXPECT_EQ(read_all(d + c.output), read_all(d + "given-" + c.output)) << c.args;
  }
}

// A folder of photographs in groups of three by the time they were taken,
// a change of size or a gap closing a group early: each bracket fused as
// fuse fuses it, named after its reference, kept on a rerun (--force redoes
// it), the same on worker processes.
TEST_F(Tool, BatchFusesEachBracketOfAFolderOnce) {
  const std::string d = dir_.path() + "/";
  fs::create_directory(d + "photos");
  std::string error;
  for (const std::string bracket_name : {"a", "b", "c", "d"}) {
    const auto frames = bracket(64, 48, "YUV420_PLANAR", bracket_name[0]);
    for (int k = 0; k < (bracket_name == "c" ? 2 : 3); ++k) {  // in a camera's order: normal, dark, bright
      const std::string path = d + "photos/" + bracket_name + std::to_string(k) + ".png";
      ASSERT_TRUE(write_image(path, rgb_of(frames[(k + 1) % 3], 64, 48), &error)) << error;
      if (bracket_name == "d") fs::last_write_time(path, fs::last_write_time(path) + std::chrono::minutes(1));
    }
  }
  ASSERT_TRUE(write_image(d + "photos/a3.png", {72, 48, std::vector<uint8_t>(72 * 48 * 3, 90)}, &error));
  const std::regex times("(captures|done in) +[0-9.]+ ms\n| \\(by mean luma [^)]*\\)");
  std::string first;
  for (const std::string args : {"", " --jobs 2", " --force --jobs 2"}) {
    const ToolRun run = run_tool(d, "batch photos --out-dir out" + args);
    EXPECT_EQ(run.exit_code, 0) << args << "\n" << run.err;
    const std::string out = std::regex_replace(run.out, times, "");
    if (first.empty()) first = out;
    const std::string kept = std::regex_replace(std::regex_replace(first, std::regex("written;"), "exists, kept;"),
                                                std::regex("3 written, 0 kept"), "0 written, 3 kept");
    EXPECT_EQ(out, args == " --jobs 2" ? kept : first) << args;
  }
  EXPECT_EQ(first,
            "[1/5] a0_hdr.png: written; dark photos/a2.png, normal photos/a0.png, bright photos/a1.png\n"
            "[2/5] a3.png: 1 frame, not a bracket of 3, skipped\n"
            "[3/5] b0_hdr.png: written; dark photos/b2.png, normal photos/b0.png, bright photos/b1.png\n"
            "[4/5] c0.png, c1.png: 2 frames, not a bracket of 3, skipped\n"
            "[5/5] d0_hdr.png: written; dark photos/d2.png, normal photos/d0.png, bright photos/d1.png\n"
            "batch of 5 groups: 3 written, 0 kept (the result existed), 2 skipped (not a bracket), 0 failed\n");
  const ToolRun fused = run_tool(d, "fuse photos/a2.png photos/a0.png photos/a1.png -o a.png --order as-given");
  ASSERT_EQ(fused.exit_code, 0) << fused.err;
  EXPECT_EQ(read_all(d + "out/a0_hdr.png"), read_all(d + "a.png"));
}

TEST_F(Tool, ReplaysTheLibrarysDumpsIdentically) {
  const std::string d = dir_.path() + "/";
  const auto frames = bracket(64, 48, "YVU420_SEMIPLANAR", 9);
  for (int k = 0; k < 3; ++k) write_all(d + "in" + std::to_string(k) + ".yuv", frames[k]);
  // The dump directory does not exist yet: the tool creates it.
  const ToolRun fused = run_tool(d, "fuse in0.yuv in1.yuv in2.yuv -o out.yuv --size 64x48 --layout "
                                    "YVU420_SEMIPLANAR --prop saveinput=yes --prop saveoutput=yes --dump-dir dumps");
  ASSERT_EQ(fused.exit_code, 0) << fused.err;
  ToolRun replay = run_tool(d, "replay dumps --out-dir replayed");
  EXPECT_EQ(replay.exit_code, 0) << replay.err;
  EXPECT_TRUE(std::regex_search(replay.out, std::regex("(^|\n)\\[1/1\\] IMG_64x48YVU420_SEMIPLANAR_[0-9]{8}_[0-9]{6}: "
                                                       "identical\n(.*\n)*replayed 1 captures: 1 identical, 0 "
                                                       "different, 0 without output, 0 failed\n")))
      << replay.out;
  // Captures of one name in two directories: the second result is kept beside the first.
  fs::copy(d + "dumps", d + "again");
  replay = run_tool(d, "replay dumps again --out-dir replayed");
  EXPECT_EQ(replay.exit_code, 0) << replay.err;
  EXPECT_TRUE(std::regex_search(replay.out, std::regex("\\[2/2\\] (IMG_[^:]*): identical \\(an earlier capture has "
                                                       "this name; result in replayed/\\1_replay.2.yuv\\)\n")))
      << replay.out;
  EXPECT_EQ(std::distance(fs::directory_iterator(d + "replayed"), fs::directory_iterator{}), 2);
}

// A dumped output that differs from the replay in known samples: each plane's
// count, largest difference and PSNR (U and V taken out of the V,U pairs), and
// a picture of the dimmed luma with red where the luma differs and cyan on the
// rest of a 2x2 block whose chroma does. Equal outputs get no picture.
TEST_F(Tool, ReplayExplainsADifferencePerPlaneAndDrawsWhereItLies) {
  const std::string capture = "IMG_64x48YVU420_SEMIPLANAR_20180823_090812", d = dir_.path() + "/";
  const auto frames = bracket(64, 48, "YVU420_SEMIPLANAR", 9);
  for (int k = 0; k < 3; ++k) write_all(d + capture + "_" + std::to_string(k) + ".yuv", frames[k]);
  const std::vector<uint8_t> fused = fuse_here(frames, 64, 48, "YVU420_SEMIPLANAR");
  const std::string picture = d + capture + "_replay_diff.png";
  const std::string u0 = "    U  0 of 768 samples differ, largest 0, PSNR inf\n";
  const std::string v3 = "    V  1 of 768 samples differ, largest 3, PSNR 67.44 dB\n";
  using Pixels = std::vector<std::pair<int, int>>;
  const struct {
    std::vector<std::pair<size_t, int>> changes;  // byte of the dumped output, by how much
    std::string report;                           // after ": "
    Pixels red, cyan;
    uintmax_t size = 0;  // the dumped output made this long (sparse), its size then checked before any read
  } cases[] = {
      {{}, "identical\n", {}, {}},
      {{{3075, -4}, {3476, 3}},  // U of the block at (2,0), V of the block at (20,12)
       "2 bytes differ, first at byte 3075\n    Y  0 of 3072 samples differ, largest 0, PSNR inf\n"
       "    U  1 of 768 samples differ, largest 4, PSNR 64.94 dB\n" + v3,
       {},
       {{2, 0}, {3, 0}, {2, 1}, {3, 1}, {20, 12}, {21, 12}, {20, 13}, {21, 13}}},
      {{{788, 5}, {3476, 3}},  // luma and V in the block at (20,12): red wins
       "2 bytes differ, first at byte 788\n    Y  1 of 3072 samples differ, largest 5, PSNR 69.03 dB\n" + u0 + v3,
       {{20, 12}},
       {{21, 12}, {20, 13}, {21, 13}}},
      {{}, "dumped output is 1099511627776 bytes, not 4608\n", {}, {}, uintmax_t{1} << 40},
  };
  for (const auto& c : cases) {
    std::vector<uint8_t> phone = fused;
    for (const auto& [at, by] : c.changes) {
      const int v = phone[at] + by;
      phone[at] = static_cast<uint8_t>(v >= 0 && v <= 255 ? v : phone[at] - by);  // |difference| = |by|
    }
    write_all(d + capture + "_hdr.yuv", phone);
    if (c.size != 0) fs::resize_file(d + capture + "_hdr.yuv", c.size);
    fs::remove(picture);
    const ToolRun run = run_tool(d, "replay " + capture);
    const std::string where = c.report.substr(0, c.report.find('\n'));
    EXPECT_EQ(run.exit_code, c.report == "identical\n" ? 0 : 6) << where << "\n" << run.err;
    EXPECT_NE(run.out.find("[1/1] " + capture + ": " + c.report), std::string::npos) << run.out;
    EXPECT_EQ(fs::exists(picture), !c.changes.empty()) << where;
    if (c.changes.empty()) continue;
    EXPECT_NE(run.out.find("    difference picture " + capture + "_replay_diff.png\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\nworst capture: " + capture + ", 2 samples differ ("), std::string::npos) << run.out;
    RgbImage diff;
    std::string error;
    ASSERT_TRUE(read_image(picture, &diff, &error)) << error;
    std::vector<uint8_t> expected;
    for (int i = 0; i < 64 * 48; ++i) expected.insert(expected.end(), 3, phone[i] / 2);
    for (const auto& [x, y] : c.cyan) std::copy_n("\x00\xff\xff", 3, &expected[(y * 64 + x) * 3]);
    for (const auto& [x, y] : c.red) std::copy_n("\xff\x00\x00", 3, &expected[(y * 64 + x) * 3]);
    EXPECT_EQ(diff.pixels, expected) << where;
  }
}

// A replay on worker processes is the serial replay: the same lines in
// capture order, results, exit code and report records (but for the times),
// whatever the captures' fates; the report carries the figures of the lines.
TEST_F(Tool, ReplayOnWorkersIsTheSerialReplayAndItsReportHasItsFigures) {
  const std::string d = dir_.path() + "/";
  fs::create_directories(d + "dumps");
  for (int i = 0; i < 6; ++i) {
    const std::string layout = i % 2 ? "YVU420_SEMIPLANAR" : "YUV420_PLANAR";
    const std::string base = d + "dumps/IMG_64x48" + (i == 5 ? "NV21" : layout) + "_20180823_09081" +
                             std::to_string(i);
    const auto frames = bracket(64, 48, layout, i);
    for (int k = 0; k < 3; ++k) write_all(base + "_" + std::to_string(k) + ".yuv", frames[k]);
    std::vector<uint8_t> phone = fuse_here(frames, 64, 48, layout);
    phone[100 + i] ^= static_cast<uint8_t>(i == 1 || i == 3 ? 0x10 : 0);  // two differ; 4 has no output
    if (i == 2) phone.pop_back();                                            // another size
    if (i != 4) write_all(base + "_hdr.yuv", phone);
  }
  std::string lines[2], records[2];  // without times
  const std::regex times("(captures|done in) +[0-9.]+ ms\n|\"(ms|capture_ms|wall_ms|jobs)\":[0-9.e+-]+,?");
  for (int run = 0; run < 2; ++run) {
    fs::remove_all(d + "out");
    const ToolRun r = run_tool(d, std::string("replay dumps --out-dir out --report out.jsonl --jobs ") +
                                      (run == 0 ? "1" : "3"));
    EXPECT_EQ(r.exit_code, 3) << r.err;  // the name with an unknown layout
    EXPECT_EQ(r.err, "tavo-hdr: IMG_64x48NV21_20180823_090815: unknown layout 'NV21' (YUV420_PLANAR or "
                     "YVU420_SEMIPLANAR)\n");
    lines[run] = std::regex_replace(r.out, times, "");
    const std::vector<uint8_t> report = read_all(d + "out.jsonl");
    records[run] = std::regex_replace(std::string(report.begin(), report.end()), times, "");
  }
  EXPECT_EQ(lines[0], lines[1]);
  EXPECT_EQ(records[0], records[1]);
  // A record a line, in capture order, then the summary; the figures of the
  // lines ("Y  1 of 3072 samples differ, largest 16, PSNR 48.40 dB").
  std::smatch y;
  ASSERT_TRUE(std::regex_search(lines[0], y, std::regex("\\[2/6\\][^\n]*\n    Y  ([0-9]+) of 3072 samples differ, "
                                                        "largest ([0-9]+), PSNR ([0-9.]+) dB")))
      << lines[0];
  EXPECT_TRUE(std::regex_search(records[0], std::regex(
      "^(\\{\"record\":\"capture\"[^\n]*\n){6}\\{\"record\":\"summary\",\"captures\":6,\"replayed\":6,"
      "\"identical\":1,\"different\":3,\"without_output\":1,\"failed\":1,")))
      << records[0];
  std::istringstream report(records[0]);
  std::string record;
  for (const char* status : {"identical", "different", "other_size", "different", "no_output", "failed"}) {
    std::getline(report, record);
    EXPECT_NE(record.find(std::string("\"status\":\"") + status + "\""), std::string::npos) << record;
    if (record.find("_090811\"") == std::string::npos) continue;
    EXPECT_NE(record.find("\"Y\":{\"samples\":3072,\"differing\":" + y[1].str() + ",\"largest\":" + y[2].str() +
                          ",\"squared_error\":256,\"psnr\":" + y[3].str()),
              std::string::npos)
        << record;
  }
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
  const std::string d = dir_.path() + "/";
  const auto frames = bracket(64, 48, "YUV420_PLANAR", 9);
  for (int k = 0; k < 3; ++k) write_all(d + "in" + std::to_string(k) + ".yuv", frames[k]);
  write_all(d + "short.yuv", std::vector<uint8_t>(4607, 7));  // one byte short
  mkfifo((d + "fifo").c_str(), 0644);
  fs::create_hard_link(d + "in1.yuv", d + "same.yuv");
  fs::create_hard_link(d + "short.yuv", d + "short2.yuv");
  fs::create_symlink("in1.yuv", d + "to-input.yuv");
  fs::create_symlink("nowhere.yuv", d + "dangling.yuv");
  fs::create_directory(d + "sub");
  // A capture whose result name and difference picture link to its frames.
  const std::string capture = "IMG_64x48YUV420_PLANAR_20180823_090812", cap = d + "cap/" + capture;
  fs::create_directory(d + "cap");
  for (const char* k : {"0", "1", "2"}) fs::copy_file(d + "in" + k + ".yuv", cap + "_" + k + ".yuv");
  fs::create_symlink(capture + "_1.yuv", cap + "_replay.yuv");
  fs::create_directory(d + "diff");
  for (const char* k : {"0", "1", "2"}) fs::copy_file(d + "in" + k + ".yuv", d + "diff/" + capture + "_" + k + ".yuv");
  write_all(d + "diff/" + capture + "_hdr.yuv", std::vector<uint8_t>(64 * 48 * 3 / 2, 1));
  write_all(d + "diff/" + capture + "_replay.yuv", fuse_here(frames, 64, 48, "YUV420_PLANAR"));  // as replay writes it
  fs::create_symlink(capture + "_0.yuv", d + "diff/" + capture + "_replay_diff.png");
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
  photo_tags(d, "make turned.jpg 90 0.01 6");
  // Captures whose dumped output or frame is no frame: a directory, a FIFO, a
  // device, a symbolic link loop. Their results go elsewhere.
  for (const std::string sub : {"hdr-dir", "hdr-fifo", "hdr-device", "hdr-loop", "frame-loop"}) {
    fs::create_directory(d + sub);
    for (const char* k : {"0", "1", "2"}) {
      fs::create_symlink(std::string("../in") + k + ".yuv", d + sub + "/" + capture + "_" + k + ".yuv");
    }
  }
  fs::create_directory(d + "hdr-dir/" + capture + "_hdr.yuv");
  mkfifo((d + "hdr-fifo/" + capture + "_hdr.yuv").c_str(), 0644);
  fs::create_symlink("/dev/null", d + "hdr-device/" + capture + "_hdr.yuv");
  fs::create_symlink(capture + "_hdr.yuv", d + "hdr-loop/" + capture + "_hdr.yuv");
  fs::remove(d + "frame-loop/" + capture + "_1.yuv");
  fs::create_symlink(capture + "_1.yuv", d + "frame-loop/" + capture + "_1.yuv");
  const tavo::test::TempDir elsewhere;
  const std::string away = " --out-dir " + elsewhere.path(), failed = "0 without output, 1 failed\n";

  const std::string raw = "fuse in0.yuv in1.yuv in2.yuv -o out.yuv ";
  const struct {
    std::string args;
    int exit_code;
    std::string message;
    std::string out = "";  // on stdout
    Limit limit = {};
  } cases[] = {
      {"fuse in0.yuv gone.yuv in2.yuv -o out.yuv --size 64x48", 3, "cannot open gone.yuv: No such file"},
      {"fuse in0.yuv short.yuv in2.yuv -o out.yuv --size 64x48", 3,
       "short.yuv is 4607 bytes, a 64x48 frame is 4608 (W*H*3/2)"},
      {"fuse fifo in1.yuv in2.yuv -o out.yuv --size 64x48", 3, "fifo is not a regular file"},
      {raw + "--size 60x48", 2, "width 60 is not a multiple of 8"},
      {raw + "--size 64*48", 2, "bad size"},
      {raw + "--size 64x48 --layout NV21", 2, "unknown layout 'NV21'"},
      {raw, 2, "raw frames need --size"},
      {raw + "--size 64x48 --prop =yes", 2, "bad property"},
      {raw + "--size 64x48 --fast", 2, "unknown option"},
      {"fuse in0.yuv in1.yuv -o out.yuv --size 64x48", 2, "three input files"},
      {raw + "--size 64x48 --stop", 5, "stopped before it finished (result 1)"},
      {raw + "--size 64x48 --dump-dir short.yuv/dumps", 3,
       "cannot create the dump directory short.yuv/dumps: Not a directory"},
      {"fuse in0.yuv in1.yuv in2.yuv -o same.yuv --size 64x48", 3, "same.yuv is one of the inputs"},
      {"fuse in0.yuv in1.yuv in2.yuv -o to-input.yuv --size 64x48", 3, "to-input.yuv is one of the inputs"},
      {"fuse in0.yuv in1.yuv in2.yuv -o fifo --size 64x48", 3, "fifo exists and is not a regular file"},
      {"fuse in0.yuv in1.yuv in2.yuv -o sub --size 64x48", 3, "sub exists and is not a regular file"},
      {"fuse in0.yuv in1.yuv in2.yuv -o dangling.yuv --size 64x48", 3, "dangling.yuv is a symbolic link to"},
      {"fuse in0.yuv in1.yuv in2.yuv -o short2.yuv --size 64x48", 3, "short2.yuv has 2 hard links"},
      {"fuse in0.yuv in1.yuv in2.yuv -o gone/out.yuv --size 64x48", 3, "cannot write gone/out.yuv: No such file"},
      {"fuse a.png b.png a.png -o b.png", 3, "b.png is one of the inputs"},
      {"fuse a.png b.png wide.png -o out.png", 3, "images of different sizes: a.png is 64x48, wide.png is 72x48"},
      {"fuse odd.png odd.png odd.png -o out.png", 3, "odd.png: width 60 is not a multiple of 8"},
      {"fuse a.png b.png in0.yuv -o out.png", 2, "give three image files"},
      {"fuse cut.jpg a.png b.png -o out.png", 3, "cannot decode cut.jpg: Premature end of JPEG file"},
      {"fuse a.png bad.png b.png -o out.png", 3, "cannot decode bad.png: "},
      {"fuse a.png b.png a.png -o out.png", 3,
       "cannot tell a.png and b.png apart by mean luma (90 and 90; 2 levels apart at least)"},
      {"fuse a.png b.png a.png -o out.png --order darkest", 2, "bad order 'darkest' (exposure or as-given)"},
      {"fuse a.png b.png a.png -o out.jpg --quality 101", 2, "bad quality '101' (1 to 100)"},
      {"fuse turned.jpg a.png b.png -o out.png", 3,
       "images of different orientations: turned.jpg has EXIF orientation 6, a.png 1"},
      {"fuse huge.png a.png b.png -o out.png", 3, "huge.png: 100000x100000 is more than the library's 213726991 pixels"},
// Sanitizers need more address space; under an emulator the limit would bound
// the emulator's own mappings too (the loop skips it there).
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
      {"fuse big.png a.png b.png -o out.png", 4, "out of memory in fuse", "", {RLIMIT_AS, 300 << 20}},
#endif
      {"demo --size 16384x16384", 2, "16384x16384 is more than the library's"},
      {"replay cap", 3, capture + "_replay.yuv is one of the inputs"},
      {"replay diff", 3, capture + "_replay_diff.png is one of the inputs; the tool never writes over an input"},
      {"replay holiday", 3, "holiday does not exist"},
      {"replay cap --report sub", 3, "sub exists and is not a regular file"},
      {"replay in0.yuv", 2, "not a capture name"},
      {"replay hdr-dir" + away, 3, "hdr-dir/" + capture + "_hdr.yuv is not a regular file", failed},
      {"replay hdr-fifo" + away, 3, "hdr-fifo/" + capture + "_hdr.yuv is not a regular file", failed},
      {"replay hdr-device" + away, 3, "hdr-device/" + capture + "_hdr.yuv is not a regular file", failed},
      {"replay hdr-loop" + away, 3, "cannot open hdr-loop/" + capture + "_hdr.yuv: Too many levels of symbolic links",
       failed},
      {"replay frame-loop", 3, "cannot open frame-loop/" + capture + "_1.yuv: Too many levels of symbolic links",
       failed},
      {"replay IMG_64x48YUV420\nPLAN\x1b" "AR_20180823_090812", 3,
       "IMG_64x48YUV420\\nPLAN\\x1bAR_20180823_090812: unknown layout 'YUV420\\nPLAN\\x1bAR' (",
       "[1/1] IMG_64x48YUV420\\nPLAN\\x1bAR_20180823_090812: failed\n"},
      {"replay IMG_60x48NV21_20180823_090812", 3,
       "IMG_60x48NV21_20180823_090812: unknown layout 'NV21' (YUV420_PLANAR or YVU420_SEMIPLANAR); width 60 is not a "
       "multiple of 8"},
      {"replay IMG_64x9999999999YUV420_PLANAR_20180823_090812", 3,
       "IMG_64x9999999999YUV420_PLANAR_20180823_090812: 64x9999999999 is more than the library's 213726991 pixels"},
      {"demo --size 64x48 >/dev/full", 7, "cannot write to standard output: No space left on device"},
      {"batch sub", 2, "batch takes one folder and --out-dir OUT"},
      {"batch sub --out-dir out --group 2", 2, "bad group '2' (3 to 99 frames)"},
      {"batch . --out-dir .", 2, "--out-dir is the folder itself"},
      {"batch holiday --out-dir out", 3, "cannot read the folder holiday: No such file or directory"},
      {"sharpen", 2, "unknown command 'sharpen'"},
  };
  const auto files = snapshot(dir_.path());
  for (const auto& c : cases) {
    if (c.limit.first == RLIMIT_AS && !tool_emulator().empty()) continue;
    const ToolRun run = run_tool(dir_.path(), c.args, 0, "", c.limit);
    EXPECT_EQ(run.exit_code, c.exit_code) << c.args << "\n" << run.err;
    EXPECT_NE(run.out.find(c.out), std::string::npos) << c.args << "\n" << run.out;
    // The tool's line, then the usage for a bad command line: no warning of an
    // image library, no log.
    const size_t eol = run.err.find('\n');
    EXPECT_TRUE(run.err.starts_with("tavo-hdr: ")) << c.args << "\n" << run.err;
    EXPECT_NE(run.err.substr(0, eol).find(c.message), std::string::npos) << c.args << "\n" << run.err;
    EXPECT_TRUE(eol + 1 == run.err.size() || run.err.substr(eol + 1) == kUsage) << c.args << "\n" << run.err;
    EXPECT_EQ(snapshot(dir_.path()), files) << c.args;
  }
}

// A capture the library fails (an input dump it cannot open: a directory
// stands at every name it could take in the next minute) shows the library's
// log above the tool's line, and exits 4.
TEST_F(Tool, FailedCaptureShowsTheLibrarysLog) {
  const std::string d = dir_.path() + "/";
  for (int k = 0; k < 3; ++k) write_all(d + "in" + std::to_string(k) + ".yuv", std::vector<uint8_t>(4608, 90));
  for (time_t t = time(nullptr), end = t + 60; t < end; ++t) {
    char name[64];
    tm local{};
    strftime(name, sizeof name, "IMG_64x48YUV420_PLANAR_%Y%m%d_%H%M%S_0.yuv", localtime_r(&t, &local));
    fs::create_directories(d + "dumps/" + name);
  }
  const ToolRun run = run_tool(d, "fuse in0.yuv in1.yuv in2.yuv -o out.yuv --size 64x48 --prop saveinput=yes "
                                  "--dump-dir dumps");
  EXPECT_EQ(run.exit_code, 4);
  EXPECT_TRUE(std::regex_search(run.err, std::regex("^(hdr E L [0-9]+, [a-zA-Z_]+: .*\n)*hdr E L [0-9]+, "
                                                    "HDR_Function: fopen img0 fail!\n(hdr E .*\n)*tavo-hdr: the "
                                                    "library could not fuse the frames \\(result -1; its log is "
                                                    "above\\)\n$")))
      << run.err;
  EXPECT_FALSE(fs::exists(d + "out.yuv"));
}

// A signal outside a capture ends the tool at once; during a replay it ends it
// after the current capture, with the summary; either way the exit code is 128
// + the signal. A closed pipe (SIGPIPE) or the file size limit (SIGXFSZ) makes
// the write fail instead: standard output exit 7, an output exit 3, a dump cut
// short exit 4 (the library removes it). No temporary file (an output, the
// property file, the log), no output and no dump is left.
TEST_F(Tool, SignalsStopTheToolWithTheirExitCodeAndLeaveNoTemporaryFile) {
  const std::string capture = "IMG_512x384YUV420_PLANAR_20180823_090812";
  std::string fifty, frames;
  for (int k = 0; k < 3; ++k) {
    const std::string frame = capture + "_" + std::to_string(k) + ".yuv";
    write_all(dir_.path() + "/" + frame, tavo::test::random_bytes(512 * 384 * 3 / 2, k));
    frames += " " + frame;
  }
  for (int i = 0; i < 50; ++i) fifty += " " + capture;
  fs::create_directory(dir_.path() + "/photos");  // 60 brackets of photographs
  for (int i = 0; i < 180; ++i) {
    std::string error;
    const RgbImage image{512, 384, std::vector<uint8_t>(512 * 384 * 3, static_cast<uint8_t>(40 + 60 * (i % 3)))};
    ASSERT_TRUE(write_image(dir_.path() + "/photos/" + std::to_string(100 + i) + ".png", image, &error)) << error;
  }
  const std::string replay = "replay" + fifty + " --out-dir replayed --prop a=b --jobs 1",
                    fuse = "fuse" + frames + " -o fused.yuv --size 512x384";
  const char* lost = "tavo-hdr: cannot write to standard output: Broken pipe\n";
  const struct {
    std::string args;
    int signal;
    const char* when;  // sent once stdout shows this
    int exit_code;
    const char* err;  // how stderr ends
    const char* out;
  } cases[] = {
      {"demo --size 4096x2048 --prop a=b --out-dir pictures", SIGTERM, "scene:", 143,
       "tavo-hdr: interrupted by SIGTERM\n", "scene:"},
      {replay, SIGINT, "[1/50]", 130, "tavo-hdr: interrupted by SIGINT\n", " of 50 captures (stopped by SIGINT): "},
      {replay, SIGHUP, "[1/50]", 129, "tavo-hdr: interrupted by SIGHUP\n", " of 50 captures (stopped by SIGHUP): "},
      {replay + " --jobs 2", SIGTERM, "[1/50]", 143, "tavo-hdr: interrupted by SIGTERM\n",
       " of 50 captures (stopped by SIGTERM): "},
      {"demo --size 4096x2048 --prop a=b --out-dir pictures", SIGPIPE, "", 7, lost, ""},
      {replay, SIGPIPE, "[1/50]", 7, lost, "[1/50]"},
      {replay + " --jobs 2", SIGPIPE, "[1/50]", 7, lost, "[1/50]"},
      {"batch photos --out-dir out --jobs 1", SIGINT, "[1/60]", 130, "tavo-hdr: interrupted by SIGINT\n",
       " of 60 groups (stopped by SIGINT): "},
      {"batch photos --out-dir out --jobs 2 --force", SIGTERM, "[1/60]", 143, "tavo-hdr: interrupted by SIGTERM\n",
       " of 60 groups (stopped by SIGTERM): "},
      {fuse + " --prop a=b", SIGXFSZ, "", 3, "tavo-hdr: cannot write fused.yuv: File too large\n", "capture"},
      {fuse + " --prop saveinput=yes --dump-dir dumps", SIGXFSZ, "", 4,
       "tavo-hdr: the library could not fuse the frames (result -1; its log is above)\n", "capture"},
  };
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // a worker process the tool left would become the test's
  for (const auto& c : cases) {
    const bool xfsz = c.signal == SIGXFSZ;  // from a 4096-byte file size limit
    const ToolRun run = run_tool(dir_.path(), c.args, xfsz ? 0 : c.signal, c.when, {RLIMIT_FSIZE, xfsz ? 4096 : 0});
    EXPECT_EQ(run.exit_code, c.exit_code) << c.args << "\n" << run.err;
    EXPECT_TRUE(run.err.ends_with(c.err)) << c.args << "\n" << run.err;
    EXPECT_NE(run.out.find(c.out), std::string::npos) << run.out;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << c.args << ": a worker process was left";
    for (const auto& [name, content] : snapshot(dir_.path())) {
      EXPECT_TRUE(name.find("tavo-hdr-") == std::string::npos && !name.starts_with("dumps/") && name != "fused.yuv")
          << c.args << ": " << name;
    }
  }
  EXPECT_FALSE(fs::exists(dir_.path() + "/pictures/demo_result.png"));
  prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(Tool, DemoFindsTheShiftsItAppliedAndWritesItsPictures) {
  EXPECT_EQ(run_tool(dir_.path(), "--version").out, "tavo-hdr " TAVO_TEST_PROJECT_VERSION "\n");
  const ToolRun run = run_tool(dir_.path(), "demo --size 192x128 --out-dir pictures");
  ASSERT_EQ(run.exit_code, 0) << run.err;
  EXPECT_NE(run.out.find("frame 0 (dark):    applied dx=+6 dy=-4, found x=+6 y=-4: agree"), std::string::npos) << run.out;
  for (const std::string stage : {"registration", "fusion", "resize", "total", "HDR_Function"}) {
    EXPECT_TRUE(std::regex_search(run.out, std::regex("\n" + stage + " +[0-9]+\\.[0-9] ms(, the same bytes)?\n")))
        << run.out;
  }
  EXPECT_NE(run.out.find(" ms, the same bytes\n"), std::string::npos);
  RgbImage result, sheet;
  std::string error;
  ASSERT_TRUE(read_image(dir_.path() + "/pictures/demo_result.png", &result, &error)) << error;
  ASSERT_TRUE(read_image(dir_.path() + "/pictures/demo_contact_sheet.png", &sheet, &error)) << error;
  EXPECT_EQ(std::pair(result.width, result.height), std::pair(192, 128));
  EXPECT_GT(sheet.width, 4 * 96);
}

#endif  // TAVO_HDR_TOOL_PATH

}  // namespace
