#include "tools/raw_io.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tavo::tool {

bool read_file(const std::string& path, std::vector<uint8_t>* bytes, std::string* error) {
  FILE* file = fopen(path.c_str(), "rb");
  if (file == nullptr) {
    *error = "cannot open " + path + ": " + strerror(errno);
    return false;
  }
  bytes->clear();
  uint8_t chunk[1 << 16];
  size_t n = 0;
  while ((n = fread(chunk, 1, sizeof chunk, file)) > 0) bytes->insert(bytes->end(), chunk, chunk + n);
  const bool failed = ferror(file) != 0;
  const int saved = errno;
  fclose(file);
  if (failed) {
    *error = "cannot read " + path + ": " + strerror(saved);
    return false;
  }
  return true;
}

bool write_file_atomic(const std::string& path, const uint8_t* data, size_t size,
                       std::string* error) {
  const size_t slash = path.find_last_of('/');
  const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const std::string temp = dir + "." + name + "." + std::to_string(getpid()) + ".tmp";
  FILE* file = fopen(temp.c_str(), "wb");
  if (file == nullptr) {
    *error = "cannot write " + path + ": " + strerror(errno);
    return false;
  }
  bool ok = fwrite(data, 1, size, file) == size;
  int saved = errno;
  ok = (fflush(file) == 0) && ok;
  if (!ok) saved = errno;
  ok = (fclose(file) == 0) && ok;
  if (ok && rename(temp.c_str(), path.c_str()) != 0) {
    ok = false;
    saved = errno;
  }
  if (!ok) {
    remove(temp.c_str());
    *error = "cannot write " + path + ": " + strerror(saved);
  }
  return ok;
}

}  // namespace tavo::tool
