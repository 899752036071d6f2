#include "tools/exif_tags.h"

#include <cmath>
#include <cstddef>
#include <cstring>

namespace tavo::tool {

namespace {

enum Tag : uint16_t {
  kImageWidth = 0x0100,
  kImageLength = 0x0101,
  kOrientation = 0x0112,
  kExposureTime = 0x829a,
  kFNumber = 0x829d,
  kExifIfd = 0x8769,
  kIso = 0x8827,
  kDateTimeOriginal = 0x9003,
  kPixelXDimension = 0xa002,
  kPixelYDimension = 0xa003,
};
enum Type : uint16_t { kShort = 3, kLong = 4, kRational = 5, kDouble = 12 };

// A TIFF block in its byte order; every read and write checks its bounds.
class Tiff {
 public:
  explicit Tiff(std::vector<uint8_t>* bytes) : b_(*bytes) {
    big_ = b_.size() >= 8 && b_[0] == 'M' && b_[1] == 'M';
    valid_ = b_.size() >= 8 && (big_ || (b_[0] == 'I' && b_[1] == 'I')) && get(2, 2) == 42;
  }
  bool valid() const { return valid_; }
  bool fits(uint64_t at, uint64_t n) const { return at + n <= b_.size(); }
  uint32_t get(uint64_t at, int n) const {
    if (!fits(at, n)) return 0;
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) v |= static_cast<uint32_t>(b_[at + i]) << 8 * (big_ ? n - 1 - i : i);
    return v;
  }
  void put(uint64_t at, int n, uint32_t v) {
    if (!fits(at, n)) return;
    for (int i = 0; i < n; ++i) b_[at + i] = static_cast<uint8_t>(v >> 8 * (big_ ? n - 1 - i : i));
  }
  uint32_t ifd0() const { return get(4, 4); }

  // Calls f(entry offset, tag, type, count) for each entry of the IFD at `at`;
  // the offset of the field holding the next IFD's offset, or 0.
  template <typename F>
  uint64_t entries(uint32_t at, F f) const {
    const uint32_t n = get(at, 2);
    if (at == 0 || !fits(at, 2 + 12ull * n + 4)) return 0;
    for (uint32_t i = 0; i < n; ++i) {
      const uint64_t e = at + 2 + 12ull * i;
      f(e, static_cast<uint16_t>(get(e, 2)), static_cast<uint16_t>(get(e + 2, 2)), get(e + 4, 4));
    }
    return at + 2 + 12ull * n;
  }
  // An entry's first value as a number (SHORT, LONG, RATIONAL or DOUBLE).
  double number(uint64_t e, uint16_t type) const {
    if (type == kShort) return get(e + 8, 2);
    if (type == kLong) return get(e + 8, 4);
    const uint32_t at = get(e + 8, 4);
    if (type == kDouble && fits(at, 8)) {
      const uint64_t bits = (static_cast<uint64_t>(get(at + (big_ ? 0 : 4), 4)) << 32) | get(at + (big_ ? 4 : 0), 4);
      double v;
      memcpy(&v, &bits, sizeof v);
      return std::isfinite(v) ? v : 0;
    }
    const uint32_t den = get(at + 4, 4);
    return type != kRational || den == 0 ? 0 : static_cast<double>(get(at, 4)) / den;
  }
  std::string text(uint64_t e, uint32_t count) const {
    const uint64_t at = count <= 4 ? e + 8 : get(e + 8, 4);
    if (!fits(at, count)) return "";
    std::string s(b_.begin() + static_cast<ptrdiff_t>(at), b_.begin() + static_cast<ptrdiff_t>(at + count));
    return s.substr(0, s.find('\0'));
  }

 private:
  std::vector<uint8_t>& b_;
  bool big_ = false, valid_ = false;
};

}  // namespace

ExifFacts read_exif(const std::vector<uint8_t>& tiff) {
  ExifFacts facts;
  std::vector<uint8_t> copy = tiff;  // Tiff writes too; reading leaves this one as it is
  const Tiff t(&copy);
  if (!t.valid()) return facts;
  uint32_t exif_ifd = 0;
  const auto read = [&](uint64_t e, uint16_t tag, uint16_t type, uint32_t count) {
    switch (tag) {
      case kOrientation: {
        const int o = static_cast<int>(t.number(e, type));
        facts.orientation = o >= 1 && o <= 8 ? o : 1;
        break;
      }
      case kExifIfd: exif_ifd = t.get(e + 8, 4); break;
      case kExposureTime: facts.exposure_time = t.number(e, type); break;
      case kFNumber: facts.f_number = t.number(e, type); break;
      case kIso: facts.iso = t.number(e, type); break;
      case kDateTimeOriginal: facts.taken = t.text(e, count); break;
      default: break;
    }
  };
  t.entries(t.ifd0(), read);
  if (exif_ifd != t.ifd0()) t.entries(exif_ifd, read);
  return facts;
}

void set_exif_pixel_size(std::vector<uint8_t>* tiff, uint32_t width, uint32_t height) {
  Tiff t(tiff);
  if (!t.valid()) return;
  uint32_t exif_ifd = 0;
  const auto set = [&](uint64_t e, uint16_t tag, uint16_t type, uint32_t count) {
    if (tag == kExifIfd) exif_ifd = t.get(e + 8, 4);
    const bool is_width = tag == kImageWidth || tag == kPixelXDimension;
    if ((is_width || tag == kImageLength || tag == kPixelYDimension) && count == 1 &&
        (type == kShort || type == kLong)) {
      const uint32_t v = is_width ? width : height;
      if (type == kShort && v > 0xffff) {
        t.put(e + 2, 2, kLong);  // the value field holds four bytes either way
      }
      t.put(e + 8, 4, 0);
      t.put(e + 8, type == kShort && v <= 0xffff ? 2 : 4, v);
    }
  };
  const uint64_t next = t.entries(t.ifd0(), set);
  if (next != 0) t.put(next, 4, 0);  // no IFD1: the thumbnail
  if (exif_ifd != t.ifd0()) t.entries(exif_ifd, set);
}

}  // namespace tavo::tool
