// The tool's pieces without the image libraries: colour conversion, dump
// names, output files, command line and size limits, contact sheet, frame
// differences.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "api/capture_limits.h"
#include "include/tavo_lumo_hdr.h"
#include "support/test_support.h"
#include "tools/cli_args.h"
#include "tools/contact_sheet.h"
#include "tools/dump_names.h"
#include "tools/frame_diff.h"
#include "tools/output_file.h"
#include "tools/raw_io.h"
#include "tools/yuv_convert.h"

namespace fs = std::filesystem;
using namespace tavo::tool;

namespace tavo::tool::test {

// Every entry under `dir`, recursively: regular files by size and a hash of
// their bytes, symbolic links by target, anything else by type. Also used by
// tool_test.cc.
std::map<std::string, std::string> snapshot(const std::string& dir) {
  std::map<std::string, std::string> entries;
  for (const auto& e : fs::recursive_directory_iterator(dir)) {
    const fs::file_status status = e.symlink_status();
    std::string& value = entries[e.path().lexically_relative(dir).string()];
    if (fs::is_symlink(status)) {
      value = "-> " + fs::read_symlink(e.path()).string();
    } else if (fs::is_regular_file(status)) {
      std::ifstream in(e.path(), std::ios::binary);
      const std::string bytes(std::istreambuf_iterator<char>(in), {});
      value = std::to_string(bytes.size()) + " bytes, hash " + std::to_string(std::hash<std::string>{}(bytes));
    } else {
      value = "type " + std::to_string(static_cast<int>(status.type()));
    }
  }
  return entries;
}

}  // namespace tavo::tool::test

namespace {

using tavo::tool::test::snapshot;

void touch(const std::string& path, const std::string& text = "x") { std::ofstream(path) << text; }

std::vector<uint8_t> yuv_of(const std::vector<uint8_t>& rgb, int32_t w, int32_t h, ChromaLayout layout) {
  std::vector<uint8_t> yuv(static_cast<size_t>(w) * h * 3 / 2);
  rgb_to_yuv420(rgb.data(), w, h, layout, yuv.data());
  return yuv;
}

TEST(ToolColour, KnownColoursGiveFullRangeValues) {
  struct Case {
    uint8_t r, g, b, y, u, v;
  } cases[] = {
      {0, 0, 0, 0, 128, 128},       {255, 255, 255, 255, 128, 128}, {128, 128, 128, 128, 128, 128},
      {255, 0, 0, 77, 85, 255},     {0, 255, 0, 149, 43, 21},       {0, 0, 255, 29, 255, 107},
  };
  for (const Case& c : cases) {
    // A 2x2 block of one colour: its chroma is that colour's.
    std::vector<uint8_t> rgb;
    for (int i = 0; i < 4; ++i) rgb.insert(rgb.end(), {c.r, c.g, c.b});
    const auto planar = yuv_of(rgb, 2, 2, ChromaLayout::kPlanar);
    EXPECT_EQ(planar, (std::vector<uint8_t>{c.y, c.y, c.y, c.y, c.u, c.v})) << int(c.r) << "," << int(c.g) << "," << int(c.b);
    EXPECT_EQ(yuv_of(rgb, 2, 2, ChromaLayout::kSemiPlanar), (std::vector<uint8_t>{c.y, c.y, c.y, c.y, c.v, c.u}));
  }
}

TEST(ToolColour, RoundTripOfFlatColourBlocksIsClose) {
  // Colours that YUV 4:2:0 can hold exactly (one colour per 2x2 block) come
  // back within the rounding of the two conversions.
  const int32_t w = 16, h = 16;
  const std::vector<uint8_t> colours = tavo::test::random_bytes(w * h / 4 * 3, 3);
  std::vector<uint8_t> rgb(w * h * 3);
  for (int r = 0; r < h; ++r) {
    for (int c = 0; c < w; ++c) {
      for (int ch = 0; ch < 3; ++ch) rgb[(r * w + c) * 3 + ch] = colours[((r / 2) * (w / 2) + c / 2) * 3 + ch];
    }
  }
  for (ChromaLayout layout : {ChromaLayout::kPlanar, ChromaLayout::kSemiPlanar}) {
    std::vector<uint8_t> back(rgb.size());
    yuv420_to_rgb(yuv_of(rgb, w, h, layout).data(), w, h, layout, back.data());
    int worst = 0;
    for (size_t i = 0; i < rgb.size(); ++i) worst = std::max(worst, std::abs(rgb[i] - back[i]));
    // Saturated colours clip in YUV; the bound covers their rounding.
    EXPECT_LE(worst, 4);
  }
}

TEST(ToolDumpNames, ParsesSizeLayoutAndStamp) {
  struct Case {
    const char* base;
    bool ok;
    int32_t w, h;
    const char* layout;
    const char* stamp;
  } cases[] = {
      {"IMG_4000x3000YUV420_PLANAR_20180823_090812", true, 4000, 3000, "YUV420_PLANAR", "20180823_090812"},
      {"IMG_64x48YVU420_SEMIPLANAR_20261121_000000", true, 64, 48, "YVU420_SEMIPLANAR", "20261121_000000"},
      {"IMG_64x48_20261121_000000", true, 64, 48, "", "20261121_000000"},  // an empty layout
      {"IMG_64x48NV21_2026112_000000", false, 0, 0, "", ""},                              // short date
      {"IMG_64x48NV21_20261121_00000a", false, 0, 0, "", ""},
      {"IMG_64-48NV21_20261121_000000", false, 0, 0, "", ""},
      {"PIC_64x48NV21_20261121_000000", false, 0, 0, "", ""},
      {"IMG_x48NV21_20261121_000000", false, 0, 0, "", ""},
  };
  for (const Case& c : cases) {
    DumpName name;
    ASSERT_EQ(parse_dump_name(c.base, &name), c.ok) << c.base;
    if (!c.ok) continue;
    EXPECT_EQ(name.width, c.w);
    EXPECT_EQ(name.height, c.h);
    EXPECT_EQ(name.layout, c.layout);
    EXPECT_EQ(name.stamp, c.stamp);
  }
}

TEST(ToolDumpNames, DirectoryGivesCompleteCapturesInTimeOrderAndTheirOutputs) {
  tavo::test::TempDir dir;
  const std::string d = dir.path() + "/";
  const std::string a = "IMG_64x48YUV420_PLANAR_20180823_090812", b = "IMG_64x48YUV420_PLANAR_20180823_090820",
                    lone = "IMG_64x48YUV420_PLANAR_20180823_090830";
  for (const std::string& base : {a, b}) {
    for (int k = 0; k < 3; ++k) touch(d + base + "_" + std::to_string(k) + ".yuv");
  }
  touch(d + lone + "_0.yuv");  // no _1, _2: not a capture
  touch(d + "IMG_64x48YUV420_PLANAR_20180823_090813_hdr.yuv");  // a's output, a second later
  touch(d + "IMG_64x48YUV420_PLANAR_20180823_090825_hdr.yuv");  // b's
  touch(d + "IMG_64x48YVU420_SEMIPLANAR_20180823_090814_hdr.yuv");  // another layout
  std::vector<Capture> captures;
  std::string error;
  ASSERT_EQ(collect_captures({dir.path()}, &captures, &error), Collected::kCollected) << error;
  ASSERT_EQ(captures.size(), 2u);
  EXPECT_EQ(captures[0].prefix, d + a);
  EXPECT_EQ(captures[1].prefix, d + b);
  EXPECT_EQ(find_dumped_output(captures[0]), d + "IMG_64x48YUV420_PLANAR_20180823_090813_hdr.yuv");
  EXPECT_EQ(find_dumped_output(captures[1]), d + "IMG_64x48YUV420_PLANAR_20180823_090825_hdr.yuv");
  // An exact name wins; an output after the next capture's inputs is not a's.
  touch(d + a + "_hdr.yuv");
  EXPECT_EQ(find_dumped_output(captures[0]), d + a + "_hdr.yuv");
  fs::remove(d + a + "_hdr.yuv");
  fs::remove(d + "IMG_64x48YUV420_PLANAR_20180823_090813_hdr.yuv");
  EXPECT_EQ(find_dumped_output(captures[0]), "");

  // Prefixes, with or without the first frame's suffix; a file that is no
  // capture; a directory that is not there.
  ASSERT_EQ(collect_captures({d + a + "_0.yuv", d + b}, &captures, &error), Collected::kCollected);
  EXPECT_EQ(captures[0].prefix, d + a);
  EXPECT_EQ(captures[1].name.stamp, "20180823_090820");
  touch(d + "holiday.yuv");
  EXPECT_EQ(collect_captures({d + "holiday.yuv"}, &captures, &error), Collected::kNotACaptureName);
  EXPECT_NE(error.find("not a capture name"), std::string::npos);
  EXPECT_EQ(collect_captures({d + "holiday/"}, &captures, &error), Collected::kMissing);
  EXPECT_EQ(error, d + "holiday/ does not exist");
}

// Every kind of destination, written or refused; write_output and the early
// check agree, and no temporary file is left either way.
TEST(ToolOutputFiles, WriteRegularFilesWholeAndRefuseEverythingElse) {
  tavo::test::TempDir dir;
  const std::string d = dir.path() + "/", old = "the previous, longer content";
  const mode_t mask = umask(022);
  for (const char* name : {"old.yuv", "target.yuv", "one.yuv", "input.yuv"}) touch(d + name, old);
  fs::permissions(d + "old.yuv", fs::perms(0640));
  fs::create_symlink("target.yuv", d + "link.yuv");
  fs::create_symlink("nowhere.yuv", d + "dangling.yuv");
  fs::create_symlink("input.yuv", d + "to-input.yuv");
  fs::create_hard_link(d + "one.yuv", d + "two.yuv");
  fs::create_directory(d + "sub");
  mkfifo((d + "fifo").c_str(), 0644);
  std::vector<FileId> inputs;
  add_file_id(d + "input.yuv", &inputs);
  const std::vector<uint8_t> result = {1, 2, 3};
  struct Case {
    std::string name, problem;  // problem "" when written
    std::string written;  // the file that receives the result
    mode_t mode;          // its mode afterwards
  } cases[] = {
      {"new.yuv", "", "new.yuv", 0644},
      {std::string(255, 'n'), "", std::string(255, 'n'), 0644},
      {"old.yuv", "", "old.yuv", 0640},
      {"link.yuv", "", "target.yuv", 0644},
      {"dangling.yuv", "is a symbolic link to", "", 0},
      {"fifo", "fifo exists and is not a regular file", "", 0},
      {"sub", "exists and is not a regular file", "", 0},
      {"two.yuv", "two.yuv has 2 hard links; replacing it would break them", "", 0},
      {"input.yuv", "input.yuv is one of the inputs", "", 0},
      {"to-input.yuv", "to-input.yuv is one of the inputs", "", 0},
      {"missing/out.yuv", "cannot write " + d + "missing/out.yuv: No such file or directory", "", 0},
  };
  for (const Case& c : cases) {
    auto expected = snapshot(dir.path());
    std::string error;
    EXPECT_EQ(write_output(d + c.name, result.data(), result.size(), inputs, &error), c.problem.empty()) << c.name;
    EXPECT_NE(error.find(c.problem), std::string::npos) << c.name << ": " << error;
    EXPECT_EQ(output_problem(d + c.name, inputs), error) << c.name;
    if (!c.written.empty()) {
      std::vector<uint8_t> back;
      EXPECT_TRUE(read_file(d + c.written, &back, &error) && back == result) << c.name;
      EXPECT_EQ(fs::status(d + c.written).permissions(), fs::perms(c.mode)) << c.name;
      expected[c.written] = snapshot(dir.path())[c.written];
    }
    EXPECT_EQ(snapshot(dir.path()), expected) << c.name;  // the rest as it was, no temporary file
  }
  umask(mask);
}

TEST(ToolCommandLine, RefusesMalformedArguments) {
  struct Case {
    std::vector<const char*> args;
    const char* error;  // "" when accepted
  } cases[] = {
      {{"tavo-hdr"}, ""},
      {{"tavo-hdr", "--size", "320x240"}, ""},
      {{"tavo-hdr", "fuse", "a", "b", "c", "-o", "o", "--prop", "saveinput=yes", "--prop", "k="}, ""},
      {{"tavo-hdr", "blend"}, "unknown command"},
      {{"tavo-hdr", "fuse", "a", "b", "-o", "o"}, "three input files"},
      {{"tavo-hdr", "fuse", "a", "b", "c"}, "three input files"},
      {{"tavo-hdr", "replay"}, "at least one"},
      {{"tavo-hdr", "demo", "--size", "64*48"}, "bad size"},
      {{"tavo-hdr", "demo", "--size", "0x48"}, "bad size"},
      {{"tavo-hdr", "demo", "--prop", "=yes"}, "bad property"},
      {{"tavo-hdr", "demo", "--dump-dir"}, "needs a value"},
      {{"tavo-hdr", "demo", "--fast"}, "unknown option"},
  };
  for (const Case& c : cases) {
    Options options;
    std::string error;
    const bool ok = parse_args(static_cast<int>(c.args.size()), c.args.data(), &options, &error);
    EXPECT_EQ(ok, c.error[0] == '\0') << c.args.back() << ": " << error;
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
  }
  Options options;
  const char* argv[] = {"tavo-hdr", "fuse", "a", "b", "c", "-o", "o", "--prop", "x=1=2", "--size", "64x48"};
  std::string error;
  ASSERT_TRUE(parse_args(11, argv, &options, &error));
  EXPECT_EQ(options.properties[0], (std::pair<std::string, std::string>{"x", "1=2"}));
  EXPECT_EQ(options.width, 64);
  EXPECT_EQ(options.height, 48);
}

// The public header's limits, which the tool checks, against the library's own
// check: both accept or both refuse each size, at the corners of the range.
TEST(ToolSizeLimits, HeaderLimitsAgreeWithTheLibrarysCheck) {
  EXPECT_EQ(6286088LL * 34, TAVO_HDR_MAX_PIXELS + 1LL);
  struct Case {
    int32_t width, height;
    const char* problem;  // "" when accepted
  } cases[] = {
      {64, 48, ""},
      {TAVO_HDR_MIN_WIDTH, TAVO_HDR_MIN_HEIGHT, ""},
      {60, 48, "width 60 is not a multiple of 8"},
      {64, 47, "height 47 is odd"},
      {8, 26715872, ""},  // the tallest, the widest and the squarest at the limit
      {106863488, 2, ""},
      {14616, 14622, ""},
      {6286088, 32, ""},
      {6286088, 34, "6286088x34 is more than the library's 213726991 pixels"},  // its pyramid block passes 4 GiB
      {16384, 16384, "is more than"},
  };
  for (const Case& c : cases) {
    EXPECT_NE(frame_size_problem(c.width, c.height).find(c.problem), std::string::npos) << c.width << "x" << c.height;
    EXPECT_EQ(frame_size_problem(c.width, c.height).empty(), c.problem[0] == '\0') << c.width << "x" << c.height;
    EXPECT_EQ(tavo::capture_size_supported(c.width, c.height), c.problem[0] == '\0') << c.width << "x" << c.height;
  }
}

TEST(ToolContactSheet, PanelsAreBoxAveragedAndCaptioned) {
  RgbImage a{8, 4, tavo::test::random_bytes(8 * 4 * 3, 5)}, b{8, 4, std::vector<uint8_t>(8 * 4 * 3, 200)};
  const RgbImage sheet = contact_sheet({{&a, "A"}, {&b, "FUSED"}}, 4);  // halved: 4x2 panels
  const int32_t margin = 4, bar = 7 + 2 * margin;
  ASSERT_EQ(sheet.width, 2 * 4 + 3 * margin);
  ASSERT_EQ(sheet.height, bar + 2 + margin);
  for (int r = 0; r < 2; ++r) {
    for (int c = 0; c < 4; ++c) {
      for (int ch = 0; ch < 3; ++ch) {
        int sum = 0;
        for (int k = 0; k < 4; ++k) sum += a.pixels[((2 * r + k / 2) * 8 + 2 * c + k % 2) * 3 + ch];
        EXPECT_EQ(sheet.pixels[((bar + r) * sheet.width + margin + c) * 3 + ch], (sum + 2) / 4);
        EXPECT_EQ(sheet.pixels[((bar + r) * sheet.width + 2 * margin + 4 + c) * 3 + ch], 200);
      }
    }
  }
  // "A": its apex is the middle three columns of the glyph's first row.
  const auto ink = [&](int x, int y) { return sheet.pixels[(y * sheet.width + x) * 3] == 240; };
  EXPECT_FALSE(ink(margin, margin));
  EXPECT_TRUE(ink(margin + 1, margin));
  EXPECT_TRUE(ink(margin + 3, margin));
  EXPECT_FALSE(ink(margin + 4, margin));
  EXPECT_EQ(text_width("FUSED", 2), (5 * 6 - 1) * 2);
}

// An 8x4 frame has 32 Y, 8 U and 8 V samples. The first chroma byte is U in
// the planar layout and V in the semi-planar one (V,U pairs).
TEST(ToolFrameDiff, CountsEachPlaneWhereItsSamplesLie) {
  struct Case {
    ChromaLayout layout;
    std::vector<std::pair<size_t, int>> changes;  // offset, difference
    size_t differing[3];
    int largest[3];
    const char* psnr[3];
  } cases[] = {
      {ChromaLayout::kPlanar, {}, {0, 0, 0}, {0, 0, 0}, {"inf", "inf", "inf"}},
      {ChromaLayout::kPlanar, {{3, -5}, {31, 2}}, {2, 0, 0}, {5, 0, 0}, {"48.56 dB", "inf", "inf"}},
      {ChromaLayout::kPlanar, {{32, 3}, {47, -9}}, {0, 1, 1}, {0, 3, 9}, {"inf", "47.62 dB", "38.08 dB"}},
      {ChromaLayout::kSemiPlanar, {{32, 3}, {35, 4}, {47, -9}}, {0, 2, 1}, {0, 9, 3}, {"inf", "37.29 dB", "47.62 dB"}},
  };
  const std::vector<uint8_t> theirs(8 * 4 * 3 / 2, 100);
  for (const Case& c : cases) {
    std::vector<uint8_t> ours = theirs;
    for (const auto& [offset, difference] : c.changes) ours[offset] = static_cast<uint8_t>(100 + difference);
    const FrameDiff d = diff_frames(ours.data(), theirs.data(), 8, 4, c.layout);
    for (int k = 0; k < 3; ++k) {
      const std::string where = "case " + std::to_string(&c - cases) + ", plane " + "YUV"[k];
      EXPECT_EQ(d.plane[k].samples, k == 0 ? 32u : 8u) << where;
      EXPECT_EQ(d.plane[k].differing, c.differing[k]) << where;
      EXPECT_EQ(d.plane[k].largest, c.largest[k]) << where;
      EXPECT_EQ(psnr_text(d.plane[k].psnr()), c.psnr[k]) << where;
    }
  }
  const std::vector<uint8_t> ours(theirs.size(), 107);
  EXPECT_EQ(diff_report(diff_frames(ours.data(), theirs.data(), 8, 4, ChromaLayout::kPlanar), "  "),
            "  Y  32 of 32 samples differ, largest 7, PSNR 31.23 dB\n"
            "  U  8 of 8 samples differ, largest 7, PSNR 31.23 dB\n"
            "  V  8 of 8 samples differ, largest 7, PSNR 31.23 dB\n");
}

}  // namespace
