#include "tools/printable_text.h"

namespace tavo::tool {

std::string printable(const std::string& text) {
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      out += c;
    } else if (c == '\t' || c == '\n' || c == '\r') {
      out += c == '\t' ? "\\t" : c == '\n' ? "\\n" : "\\r";
    } else {
      out += {'\\', 'x', kHex[byte >> 4], kHex[byte & 15]};
    }
  }
  return out;
}

}  // namespace tavo::tool
