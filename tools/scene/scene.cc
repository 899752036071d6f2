#include "tools/scene/scene.h"

#include <algorithm>

namespace tavo::scene {
namespace {

// ---- Fixed point ---------------------------------------------------------
// Scene positions are fractions of the frame in 1/65536 (u across, v down);
// round objects use the same fraction of the smaller side (p, q) so that they
// stay round. Radiance is in 1/4096 of the clipping level. The constants below
// are exact at compile time, so no floating point reaches a frame.

constexpr int64_t kUnit = 1 << 16;
consteval int64_t F(double fraction) { return static_cast<int64_t>(fraction * 65536.0); }

struct Rgb {
  int64_t r, g, b;
};
consteval Rgb C(double r, double g, double b) {
  return {static_cast<int64_t>(r * 4096.0), static_cast<int64_t>(g * 4096.0),
          static_cast<int64_t>(b * 4096.0)};
}

int64_t floor_div(int64_t a, int64_t b) {
  const int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

// c * k, k in 1/65536.
Rgb scale(Rgb c, int64_t k) { return {(c.r * k) >> 16, (c.g * k) >> 16, (c.b * k) >> 16}; }
Rgb add(Rgb a, Rgb b) { return {a.r + b.r, a.g + b.g, a.b + b.b}; }
// a + (b - a) * t, t in 1/65536 from 0 to 65536.
Rgb mix(Rgb a, Rgb b, int64_t t) {
  t = std::clamp<int64_t>(t, 0, kUnit);
  return {a.r + (((b.r - a.r) * t) >> 16), a.g + (((b.g - a.g) * t) >> 16),
          a.b + (((b.b - a.b) * t) >> 16)};
}

// ---- Randomness ----------------------------------------------------------

uint64_t mix64(uint64_t z) {
  z += 0x9e3779b97f4a7c15ull;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return z ^ (z >> 31);
}

// One mix of the seed and two coordinates, each spread by an odd constant.
uint64_t hash3(uint64_t seed, int64_t a, int64_t b) {
  return mix64(seed + static_cast<uint64_t>(a) * 0xd1b54a32d192ed03ull +
               static_cast<uint64_t>(b) * 0xabc98388fb8fac03ull);
}

// 0 ... 65535 at a lattice point.
int64_t lattice(uint64_t seed, int64_t i, int64_t j) { return static_cast<int64_t>(hash3(seed, i, j) >> 48); }

// Smoothly interpolated lattice noise, 0 ... 65535, with cells of `cell_x` by
// `cell_y` in the units of x and y.
int64_t value_noise(uint64_t seed, int64_t x, int64_t y, int64_t cell_x, int64_t cell_y) {
  const int64_t i = floor_div(x, cell_x), j = floor_div(y, cell_y);
  int64_t fx = ((x - i * cell_x) << 16) / cell_x;
  int64_t fy = ((y - j * cell_y) << 16) / cell_y;
  fx = (fx * fx >> 16) * (3 * kUnit - 2 * fx) >> 16;  // smoothstep
  fy = (fy * fy >> 16) * (3 * kUnit - 2 * fy) >> 16;
  const int64_t top = lattice(seed, i, j) + (((lattice(seed, i + 1, j) - lattice(seed, i, j)) * fx) >> 16);
  const int64_t bottom =
      lattice(seed, i, j + 1) + (((lattice(seed, i + 1, j + 1) - lattice(seed, i, j + 1)) * fx) >> 16);
  return top + (((bottom - top) * fy) >> 16);
}

uint64_t isqrt(uint64_t n) {
  uint64_t root = 0, bit = uint64_t{1} << 62;
  while (bit > n) bit >>= 2;
  while (bit != 0) {
    if (n >= root + bit) {
      n -= root + bit;
      root = (root >> 1) + bit;
    } else {
      root >>= 1;
    }
    bit >>= 2;
  }
  return root;
}

// ---- The room ------------------------------------------------------------

struct Point {
  int64_t u, v;  // fractions of width and height
  int64_t p, q;  // fractions of the smaller side
  int64_t x, y;  // pixels
  int64_t width, height, side;
  uint64_t seed;
};

// Daylight falling into the room from the window, in 1/4096.
int64_t daylight(const Point& pt) {
  const int64_t du = pt.u - F(0.73), dv = pt.v - F(0.32);
  const int64_t d2 = (du * du + dv * dv) >> 16;
  return 1229 + (9011 * kUnit) / (kUnit + 6 * d2);
}

// A disc of centre (cp, cq) and radius r, all in fractions of the smaller side;
// gives the offset from the centre in radii (1/65536).
bool in_disc(const Point& pt, int64_t cp, int64_t cq, int64_t r, int64_t* ox, int64_t* oy) {
  const int64_t dx = pt.p - cp, dy = pt.q - cq;
  if (dx * dx + dy * dy >= r * r) return false;
  *ox = (dx << 16) / r;
  *oy = (dy << 16) / r;
  return true;
}

// Fractions of the width and of the height as fractions of the smaller side.
int64_t across(const Point& pt, int64_t u) { return u * pt.width / pt.side; }
int64_t down(const Point& pt, int64_t v) { return v * pt.height / pt.side; }

Rgb fruit(const Point& pt, Rgb colour, int64_t ox, int64_t oy) {
  // Lit from the window, up and to the right, with a small highlight.
  const int64_t facing = (ox * 39322 - oy * 52429) >> 16;  // (0.6, -0.8) . offset
  Rgb c = scale(colour, F(0.55) + ((facing * F(0.45)) >> 16));
  const int64_t hx = ox - F(0.35), hy = oy + F(0.35);
  if (((hx * hx + hy * hy) >> 16) < F(0.03)) c = add(c, C(1.6, 1.6, 1.5));
  return scale(c, daylight(pt) << 4);
}

bool objects(const Point& pt, Rgb* out) {
  struct Fruit {
    int64_t u;
    Rgb colour;
  };
  static constexpr Fruit kFruit[] = {{F(0.16), C(0.50, 0.035, 0.025)},
                                     {F(0.25), C(0.70, 0.25, 0.02)},
                                     {F(0.34), C(0.14, 0.40, 0.05)}};
  constexpr int64_t kRadius = F(0.045);
  int64_t ox = 0, oy = 0;
  for (const Fruit& f : kFruit) {
    // Resting on the table top at v = 0.53.
    if (in_disc(pt, across(pt, f.u), down(pt, F(0.53)) - kRadius, kRadius, &ox, &oy)) {
      *out = fruit(pt, f.colour, ox, oy);
      return true;
    }
  }
  const int64_t light = daylight(pt) << 4;
  if (pt.u >= F(0.40) && pt.u < F(0.45) && pt.v >= F(0.44) && pt.v < F(0.53)) {
    const bool lit_side = pt.u >= F(0.43);
    *out = scale(lit_side ? C(0.05, 0.11, 0.45) : C(0.03, 0.07, 0.32), light);
    return true;
  }
  if (pt.u >= F(0.08) && pt.u < F(0.46) && pt.v >= F(0.53) && pt.v < F(0.565)) {
    // Table top with stretched wood grain.
    const int64_t grain = value_noise(pt.seed + 11, pt.u, pt.v, F(0.2), F(0.004));
    *out = scale(C(0.14, 0.075, 0.035), (light * (F(0.8) + (grain * 26214 >> 16))) >> 16);
    return true;
  }
  const bool leg = (pt.u >= F(0.10) && pt.u < F(0.125)) || (pt.u >= F(0.415) && pt.u < F(0.44));
  if (leg && pt.v >= F(0.565) && pt.v < F(0.86)) {
    *out = scale(C(0.08, 0.045, 0.02), light);
    return true;
  }
  return false;
}

Rgb sky(const Point& pt) {
  const int64_t t = ((pt.v - F(0.10)) << 16) / F(0.44);
  Rgb c = mix(C(0.9, 1.6, 4.0), C(3.0, 3.3, 3.8), t);
  // Clouds: two octaves of lattice noise in round coordinates.
  const int64_t n = (2 * value_noise(pt.seed + 3, pt.p, pt.q, F(0.09), F(0.05)) +
                     value_noise(pt.seed + 5, pt.p, pt.q, F(0.04), F(0.025))) /
                    3;
  if (n > F(0.55)) c = mix(c, C(5.5, 5.5, 5.6), (n - F(0.55)) * 4);
  // The sun, far above every clipping level, with a glare around it.
  int64_t ox = 0, oy = 0;
  const int64_t sun_p = across(pt, F(0.66)), sun_q = down(pt, F(0.17));
  if (in_disc(pt, sun_p, sun_q, F(0.03), &ox, &oy)) return C(45.0, 42.0, 34.0);
  if (in_disc(pt, sun_p, sun_q, F(0.12), &ox, &oy)) {
    const int64_t d2 = (ox * ox + oy * oy) >> 16;
    c = add(c, scale(C(6.0, 5.6, 4.6), kUnit - d2));
  }
  // Skyline: buildings of random heights, with a grid of windows.
  const int64_t column = floor_div(pt.u, F(0.035));
  const int64_t top = F(0.38) + (lattice(pt.seed + 17, column, 0) * F(0.12) >> 16);
  if (pt.v >= top) {
    const int64_t tint = lattice(pt.seed + 19, column, 1);
    Rgb facade = mix(C(0.35, 0.33, 0.30), C(0.62, 0.52, 0.45), tint);
    const int64_t wu = floor_div(pt.u, F(0.007)), wv = floor_div(pt.v - top, F(0.018));
    const int64_t lu = pt.u - wu * F(0.007), lv = (pt.v - top) - wv * F(0.018);
    if (wv >= 1 && lu > F(0.002) && lu < F(0.0055) && lv > F(0.005) && lv < F(0.014)) {
      const bool reflecting = (lattice(pt.seed + 23, wu, wv) & 3) == 0;
      facade = reflecting ? C(2.0, 2.1, 2.3) : C(0.08, 0.10, 0.14);
    }
    return facade;
  }
  return c;
}

bool window(const Point& pt, Rgb* out) {
  if (pt.u < F(0.56) || pt.u >= F(0.90) || pt.v < F(0.08) || pt.v >= F(0.56)) return false;
  const bool frame = pt.u < F(0.575) || pt.u >= F(0.885) || pt.v < F(0.10) || pt.v >= F(0.54);
  const bool bar = (pt.u >= F(0.723) && pt.u < F(0.737)) || (pt.v >= F(0.291) && pt.v < F(0.309));
  *out = frame || bar ? C(0.035, 0.025, 0.018) : sky(pt);
  return true;
}

Rgb floor_tiles(const Point& pt) {
  const int64_t light = daylight(pt) << 4;
  const int64_t dv = pt.v - F(0.64);
  const int64_t col = floor_div(pt.u, F(0.09)), row = floor_div(dv, F(0.055));
  const int64_t lu = pt.u - col * F(0.09), lv = dv - row * F(0.055);
  Rgb c;
  if (lu < F(0.004) || lv < F(0.004)) {
    c = C(0.12, 0.11, 0.10);
  } else {
    c = ((col + row) & 1) != 0 ? C(0.30, 0.27, 0.22) : C(0.06, 0.06, 0.07);
  }
  c = scale(c, light);
  // The sun patch thrown through the window.
  const int64_t slant = ((pt.v - F(0.70)) * F(0.6)) >> 16;
  if (pt.v >= F(0.70) && pt.v < F(0.93) && pt.u >= F(0.48) + slant && pt.u < F(0.70) + slant) {
    c = scale(c, 7 * kUnit);
  }
  return c;
}

Rgb wall(const Point& pt) {
  const int64_t light = daylight(pt) << 4;
  if (pt.u < F(0.42) && pt.v >= F(0.10)) {
    // Bricks in running bond, each with its own tint, in light mortar.
    const int64_t row = floor_div(pt.v, F(0.035));
    const int64_t shifted = pt.u + ((row & 1) != 0 ? F(0.035) : 0);
    const int64_t col = floor_div(shifted, F(0.07));
    const int64_t lu = shifted - col * F(0.07), lv = pt.v - row * F(0.035);
    if (lu < F(0.005) || lv < F(0.005)) return scale(C(0.22, 0.21, 0.19), light);
    const int64_t tint = lattice(pt.seed + 29, col, row);
    const Rgb brick = mix(C(0.16, 0.07, 0.045), C(0.28, 0.13, 0.07), tint);
    return scale(brick, light);
  }
  return scale(C(0.16, 0.14, 0.12), light);
}

}  // namespace

Radiance radiance(const Scene& scene, int32_t x, int32_t y) {
  Point pt{};
  pt.width = std::max(scene.width, 1);
  pt.height = std::max(scene.height, 1);
  pt.side = std::min(pt.width, pt.height);
  pt.x = x;
  pt.y = y;
  pt.u = floor_div(int64_t{x} << 16, pt.width);
  pt.v = floor_div(int64_t{y} << 16, pt.height);
  pt.p = floor_div(int64_t{x} << 16, pt.side);
  pt.q = floor_div(int64_t{y} << 16, pt.side);
  pt.seed = mix64(scene.seed);

  Rgb c;
  if (window(pt, &c)) return {static_cast<int32_t>(c.r), static_cast<int32_t>(c.g), static_cast<int32_t>(c.b)};
  if (!objects(pt, &c)) c = pt.v >= F(0.64) ? floor_tiles(pt) : wall(pt);
  // Fine grain of the surfaces at pixel scale: +-6 %.
  const int64_t grain = value_noise(pt.seed + 31, pt.x, pt.y, 3, 3);
  c = scale(c, kUnit + ((grain - 32768) >> 3));
  return {static_cast<int32_t>(c.r), static_cast<int32_t>(c.g), static_cast<int32_t>(c.b)};
}

namespace {

// Square roots the camera needs, computed once: the shot-noise scale of signals
// up to twice the clipping level (beyond it no noise reaches back below the
// clip), and the tone curve 255 * sqrt(value / 4096), rounded.
struct CameraTables {
  int32_t noise_root[8193];
  uint8_t tone[4097];
  CameraTables() {
    for (uint64_t s = 0; s <= 8192; ++s) noise_root[s] = static_cast<int32_t>(isqrt(s));
    for (uint64_t v = 0; v <= 4096; ++v) tone[v] = static_cast<uint8_t>((isqrt(v * 65025 / 1024) + 1) >> 1);
  }
};

const CameraTables& camera_tables() {
  static const CameraTables tables;
  return tables;
}

// The camera: gain, noise, clipping and tone curve of one channel, 0 ... 255.
int32_t expose(int64_t radiance, const Shot& shot, uint64_t random, const CameraTables& tables) {
  const int64_t signal = std::max<int64_t>(0, (radiance * shot.gain_q8) >> 8);
  int64_t value = signal;
  if (shot.noise_q8 > 0) {
    // Shot noise grows with the square root of the signal; read noise is flat.
    const int64_t sigma = ((tables.noise_root[std::min<int64_t>(signal, 8192)] + 4) * shot.noise_q8) >> 8;
    // Four 16-bit uniforms: nearly Gaussian, standard deviation 37837.
    int64_t sum = -131070;
    for (int k = 0; k < 4; ++k) sum += static_cast<int64_t>((random >> (16 * k)) & 0xffff);
    value += sum * sigma / 37837;
  }
  return tables.tone[std::clamp<int64_t>(value, 0, 4096)];
}

struct Pixel {
  int32_t y;
  int32_t u;  // chroma sums before the final scaling, see below
  int32_t v;
};

Pixel photograph(const Scene& scene, const Shot& shot, uint64_t noise_seed, int32_t r, int32_t j) {
  const Radiance rad = radiance(scene, j + shot.dx, r + shot.dy);
  const uint64_t h = hash3(noise_seed, r, j);
  const CameraTables& tables = camera_tables();
  const int32_t red = expose(rad.r, shot, mix64(h), tables);
  const int32_t green = expose(rad.g, shot, mix64(h + 1), tables);
  const int32_t blue = expose(rad.b, shot, mix64(h + 2), tables);
  // Full-range BT.601 in 1/256.
  return {(77 * red + 150 * green + 29 * blue + 128) >> 8, -43 * red - 85 * green + 128 * blue,
          128 * red - 107 * green - 21 * blue};
}

uint8_t chroma_byte(int32_t sum_of_four) {
  return static_cast<uint8_t>(std::clamp(((sum_of_four + 512) >> 10) + 128, 0, 255));
}

}  // namespace

void render_into(const Scene& scene, const Shot& shot, uint8_t* frame) {
  const int64_t w = scene.width, h = scene.height;
  const uint64_t noise_seed = mix64(0x5eed0000ull ^ shot.noise_seed);
  uint8_t* chroma = frame + w * h;
  const int64_t chroma_plane = (w / 2) * (h / 2);
  for (int32_t r = 0; r + 1 < h; r += 2) {
    for (int32_t j = 0; j + 1 < w; j += 2) {
      int32_t u = 0, v = 0;
      for (int32_t k = 0; k < 4; ++k) {
        const int32_t rr = r + k / 2, jj = j + k % 2;
        const Pixel px = photograph(scene, shot, noise_seed, rr, jj);
        frame[rr * w + jj] = static_cast<uint8_t>(std::clamp(px.y, 0, 255));
        u += px.u;
        v += px.v;
      }
      const int64_t c = (r / 2) * (w / 2) + j / 2;
      if (shot.layout == ChromaLayout::kSemiPlanar) {
        chroma[2 * c] = chroma_byte(v);
        chroma[2 * c + 1] = chroma_byte(u);
      } else {
        chroma[c] = chroma_byte(u);
        chroma[chroma_plane + c] = chroma_byte(v);
      }
    }
  }
}

std::vector<uint8_t> render(const Scene& scene, const Shot& shot) {
  std::vector<uint8_t> frame(static_cast<size_t>(yuv420_planes(scene.width, scene.height).frame_bytes));
  render_into(scene, shot, frame.data());
  return frame;
}

std::array<std::vector<uint8_t>, 3> render_bracket(const Scene& scene, const BracketSetup& setup) {
  const int32_t dx[3] = {setup.dx0, 0, setup.dx2};
  const int32_t dy[3] = {setup.dy0, 0, setup.dy2};
  std::array<std::vector<uint8_t>, 3> frames;
  for (int32_t i = 0; i < 3; ++i) {
    Shot shot;
    shot.gain_q8 = setup.gains_q8[i];
    shot.dx = dx[i];
    shot.dy = dy[i];
    shot.noise_seed = setup.noise_seed * 3 + static_cast<uint32_t>(i);
    shot.noise_q8 = setup.noise_q8;
    shot.layout = setup.layout;
    frames[i] = render(scene, shot);
  }
  return frames;
}

uint64_t fnv1a64(const uint8_t* data, size_t size, uint64_t hash) {
  for (size_t i = 0; i < size; ++i) {
    hash ^= data[i];
    hash *= 0x100000001b3ull;
  }
  return hash;
}

}  // namespace tavo::scene
