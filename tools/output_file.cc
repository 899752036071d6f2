#include "tools/output_file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tools/fd_io.h"
#include "tools/interrupt.h"

namespace tavo::tool {

namespace {

std::string reason(const std::string& what, int error) { return what + ": " + strerror(error); }

// The directory and the name that a write of `path` replaces: symbolic links
// of the last component are followed, as cp does.
struct Target {
  std::string dir, name;
};

// *number: the system's error number of a failure (0 for a refusal).
bool resolve_target(const std::string& path, Target* target, std::string* error, int* number) {
  std::string p = path;
  for (int hops = 0;; ++hops) {
    char link[PATH_MAX];
    const ssize_t n = readlink(p.c_str(), link, sizeof link);
    if (n < 0 && (errno == EINVAL || (errno == ENOENT && hops == 0))) break;  // a file, or a new name
    if (n < 0 && errno == ENOENT) {
      *number = ENOENT;
      *error = path + " is a symbolic link to " + p + ", which does not exist";
      return false;
    }
    if (n < 0 || n == sizeof link || hops == 40) {
      *number = n < 0 ? errno : ELOOP;
      *error = reason("cannot write " + path, *number);
      return false;
    }
    const std::string to(link, static_cast<size_t>(n));
    const size_t slash = p.find_last_of('/');
    p = to[0] == '/' || slash == std::string::npos ? to : p.substr(0, slash + 1) + to;
  }
  const size_t slash = p.find_last_of('/');
  target->dir = slash == std::string::npos ? "." : slash == 0 ? "/" : p.substr(0, slash);
  target->name = p.substr(slash == std::string::npos ? 0 : slash + 1);
  if (target->name.empty() || target->name == "." || target->name == "..") {
    *number = EISDIR;
    *error = path + " names a directory, not a file";
    return false;
  }
  return true;
}

// Why `name` in the directory `dir_fd` may not be replaced; *existing is its
// status when it exists (st_nlink 0 when it does not), *number the system's
// error number (0 for a refusal).
std::string target_problem(int dir_fd, const std::string& name, const std::string& path,
                           const std::vector<FileId>& inputs, struct stat* existing, int* number) {
  *number = 0;
  if (fstatat(dir_fd, name.c_str(), existing, AT_SYMLINK_NOFOLLOW) != 0) {
    *existing = {};
    if (errno == ENOENT) return "";
    *number = errno;
    return reason("cannot write " + path, *number);
  }
  if (std::find(inputs.begin(), inputs.end(), FileId{existing->st_dev, existing->st_ino}) != inputs.end()) {
    return path + " is one of the inputs; the tool never writes over an input";
  }
  if (!S_ISREG(existing->st_mode)) {
    if (S_ISDIR(existing->st_mode)) *number = EISDIR;
    return path + " exists and is not a regular file";
  }
  if (existing->st_nlink > 1) {
    return path + " has " + std::to_string(existing->st_nlink) +
           " hard links; replacing it would break them";
  }
  return "";
}

int open_directory(const std::string& dir) { return open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

}  // namespace

void add_file_id(const std::string& path, std::vector<FileId>* ids) {
  struct stat st;
  if (!path.empty() && stat(path.c_str(), &st) == 0) ids->push_back({st.st_dev, st.st_ino});
}

bool contains_file(const std::vector<FileId>& ids, const std::string& path) {
  std::vector<FileId> id;
  add_file_id(path, &id);
  return !id.empty() && std::find(ids.begin(), ids.end(), id[0]) != ids.end();
}

TempFile::~TempFile() { remove(); }

void TempFile::remove() {
  if (live_) unlinkat(dir_fd_, name_.c_str(), 0);
  disown();
}

void TempFile::disown() {
  if (fd_ >= 0) close(fd_);
  untrack_temp_file(slot_);
  if (dir_fd_ >= 0) close(dir_fd_);
  fd_ = dir_fd_ = slot_ = -1;
  live_ = false;
}

bool TempFile::create(const std::string& dir, const char* prefix, std::string* error) {
  dir_ = dir;
  dir_fd_ = open_directory(dir);
  if (dir_fd_ < 0) {
    error_number_ = errno;
    *error = strerror(error_number_);
    return false;
  }
  static const char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  for (int attempt = 0; attempt < 100; ++attempt) {
    unsigned char random[12];
    if (getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) break;
    name_ = prefix;
    for (unsigned char r : random) name_ += kLetters[r % 62];
    // Registered before it exists, so that no moment is left when a signal
    // would leave it behind.
    slot_ = track_temp_file(dir_fd_, name_.c_str());
    if (slot_ < 0) break;
    fd_ = openat(dir_fd_, name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd_ >= 0) {
      live_ = true;
      return true;
    }
    const int saved = errno;
    untrack_temp_file(slot_);
    slot_ = -1;
    if (saved != EEXIST) {
      error_number_ = saved;
      *error = strerror(saved);
      return false;
    }
  }
  error_number_ = EEXIST;
  *error = "no unused temporary name";
  return false;
}

bool TempFile::write_all(const uint8_t* data, size_t size) { return tool::write_all(fd_, data, size); }

bool TempFile::close_file() {
  const int fd = fd_;
  fd_ = -1;
  return fd >= 0 && close(fd) == 0;
}

bool TempFile::rename_to(const std::string& name) {
  if (renameat(dir_fd_, name_.c_str(), dir_fd_, name.c_str()) != 0) return false;
  live_ = false;
  untrack_temp_file(slot_);
  slot_ = -1;
  return true;
}

std::string output_problem(const std::string& path, const std::vector<FileId>& inputs) {
  Target target;
  std::string error;
  int number = 0;
  if (!resolve_target(path, &target, &error, &number)) return error;
  const int dir_fd = open_directory(target.dir);
  if (dir_fd < 0) return reason("cannot write " + path, errno);
  struct stat existing;
  error = target_problem(dir_fd, target.name, path, inputs, &existing, &number);
  close(dir_fd);
  return error;
}

bool OutputFile::open(const std::string& path, const std::vector<FileId>& inputs, std::string* error,
                      int* error_number) {
  int ignored = 0;
  int& number = error_number != nullptr ? *error_number : ignored;
  number = 0;
  path_ = path;
  inputs_ = inputs;
  Target target;
  if (!resolve_target(path, &target, error, &number)) return false;
  name_ = target.name;
  if (!temp_.create(target.dir, ".tavo-hdr-", error)) {
    number = temp_.error_number();
    *error = "cannot write " + path + ": " + *error;
    return false;
  }
  return true;
}

bool OutputFile::write(const uint8_t* data, size_t size, std::string* error, int* error_number) {
  if (temp_.write_all(data, size)) return true;
  const int number = errno;
  if (error_number != nullptr) *error_number = number;
  *error = reason("cannot write " + path_, number);
  return false;
}

bool OutputFile::commit(std::string* error, int* error_number) {
  int ignored = 0;
  int& number = error_number != nullptr ? *error_number : ignored;
  // Checked again just before the rename: the name may have changed meanwhile.
  struct stat existing;
  *error = target_problem(temp_.dir_fd(), name_, path_, inputs_, &existing, &number);
  if (!error->empty()) return false;
  if (existing.st_nlink != 0) {
    // The owner where allowed (root), then the mode, which a change of owner
    // would strip of its set-id bits.
    [[maybe_unused]] const int ignored_owner = fchown(temp_.fd(), existing.st_uid, existing.st_gid);
    fchmod(temp_.fd(), existing.st_mode & 07777);
  }
  if (!temp_.close_file() || !temp_.rename_to(name_)) {
    number = errno;
    *error = reason("cannot write " + path_, number);
    return false;
  }
  return true;
}

bool write_output(const std::string& path, const uint8_t* data, size_t size,
                  const std::vector<FileId>& inputs, std::string* error, int* error_number) {
  OutputFile file;
  return file.open(path, inputs, error, error_number) && file.write(data, size, error, error_number) &&
         file.commit(error, error_number);
}

bool prepare_directory(const std::string& dir, const std::string& what, std::string* error) {
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) {
    *error = "cannot create the " + what + " " + dir + ": " + ec.message();
    return false;
  }
  TempFile probe;
  if (!probe.create(dir, ".tavo-hdr-", error)) {
    *error = "the " + what + " " + dir + " is not writable: " + *error;
    return false;
  }
  return true;
}

}  // namespace tavo::tool
