// The tool's pieces without the library: colour conversion, dump names, raw
// files, command line and contact sheet.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/test_support.h"
#include "tools/cli_args.h"
#include "tools/contact_sheet.h"
#include "tools/dump_names.h"
#include "tools/raw_io.h"
#include "tools/yuv_convert.h"

namespace fs = std::filesystem;
using namespace tavo::tool;

namespace {

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
  ASSERT_TRUE(collect_captures({dir.path()}, &captures, &error)) << error;
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

  // Prefixes, with or without the first frame's suffix; names that are no capture.
  ASSERT_TRUE(collect_captures({d + a + "_0.yuv", d + b}, &captures, &error));
  EXPECT_EQ(captures[0].prefix, d + a);
  EXPECT_EQ(captures[1].name.stamp, "20180823_090820");
  EXPECT_FALSE(collect_captures({d + "holiday.yuv"}, &captures, &error));
  EXPECT_NE(error.find("not a capture name"), std::string::npos);
}

TEST(ToolRawFiles, WritesAllOrNothing) {
  tavo::test::TempDir dir;
  const std::string path = dir.path() + "/out.yuv";
  std::string error;
  const std::vector<uint8_t> big = tavo::test::random_bytes(200000, 1), small = {1, 2, 3};
  ASSERT_TRUE(write_file_atomic(path, big.data(), big.size(), &error)) << error;
  ASSERT_TRUE(write_file_atomic(path, small.data(), small.size(), &error));  // replaced, not overwritten in place
  std::vector<uint8_t> back;
  ASSERT_TRUE(read_file(path, &back, &error));
  EXPECT_EQ(back, small);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator{}), 1);  // no temporary left

  // A destination that cannot be written leaves nothing behind.
  fs::create_directory(dir.path() + "/taken");
  EXPECT_FALSE(write_file_atomic(dir.path() + "/taken", small.data(), small.size(), &error));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator{}), 2);
  EXPECT_FALSE(write_file_atomic(dir.path() + "/missing/out.yuv", small.data(), small.size(), &error));
  EXPECT_NE(error.find("cannot write"), std::string::npos);
  EXPECT_FALSE(read_file(dir.path() + "/absent.yuv", &back, &error));
  EXPECT_NE(error.find("cannot open"), std::string::npos);
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
  EXPECT_EQ(frame_size_problem(64, 48), "");
  EXPECT_EQ(frame_size_problem(60, 48), "width 60 is not a multiple of 8");
  EXPECT_EQ(frame_size_problem(64, 47), "height 47 is odd");
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

}  // namespace
