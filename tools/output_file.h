// Writing outputs without harming other files. A result goes to a new file with
// an unpredictable name in the destination's directory and is renamed over the
// destination once every byte is written, so a failed or interrupted run leaves
// no partial file. The destination must not be one of the inputs (same device
// and inode, whatever the names), must be a regular file if it exists, with a
// single link (replacing it would break its hard links); a symbolic link is
// written through to its target, which must exist, as cp does. An existing
// file keeps its mode; a new one gets 0666 less the umask.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tavo::tool {

struct FileId {
  dev_t device;
  ino_t inode;
  bool operator==(const FileId&) const = default;
};

// Adds the identity of the file `path` names (through symbolic links) to *ids;
// nothing when it does not exist.
void add_file_id(const std::string& path, std::vector<FileId>* ids);
bool contains_file(const std::vector<FileId>& ids, const std::string& path);

// A new file "<dir>/<prefix><12 random letters and digits>", created with
// O_EXCL and O_NOFOLLOW, mode 0666 less the umask. It is removed when the
// object dies unless renamed into place, and by the signal handler when the
// tool is stopped first.
class TempFile {
 public:
  TempFile() = default;
  ~TempFile();
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  // False with the reason (e.g. "Permission denied") in *error and the
  // system's error number in error_number().
  bool create(const std::string& dir, const char* prefix, std::string* error);
  int error_number() const { return error_number_; }
  int fd() const { return fd_; }
  int dir_fd() const { return dir_fd_; }
  std::string path() const { return dir_ + "/" + name_; }
  // False with errno set.
  bool write_all(const uint8_t* data, size_t size);
  bool close_file();
  // Renames the (closed) file to `name` in its directory.
  bool rename_to(const std::string& name);
  // Removes the file now (what the destructor does).
  void remove();
  // In a forked child: the file is its parent's, to be left alone.
  void disown();

 private:
  std::string dir_, name_;
  int dir_fd_ = -1, fd_ = -1, slot_ = -1, error_number_ = 0;
  bool live_ = false;
};

// Why `path` may not be written ("" when it may): the checks write_output makes,
// for a refusal before any work is done.
std::string output_problem(const std::string& path, const std::vector<FileId>& inputs);

// An output written in pieces, as described at the top: open() checks the
// destination and creates the temporary file beside it, write() appends,
// commit() checks the destination again and renames the file into place.
// Dropped before commit(), it leaves nothing. Each step is false with a
// one-line reason and, when asked for, the system's error number (0 for a
// refusal).
class OutputFile {
 public:
  bool open(const std::string& path, const std::vector<FileId>& inputs, std::string* error,
            int* error_number = nullptr);
  bool write(const uint8_t* data, size_t size, std::string* error, int* error_number = nullptr);
  bool commit(std::string* error, int* error_number = nullptr);

 private:
  std::string path_, name_;
  std::vector<FileId> inputs_;
  TempFile temp_;
};

// Writes `size` bytes to `path` as described at the top; false with a one-line
// reason, `path` untouched and no temporary file left. *error_number, when
// given, receives the system's error number of a failure (EISDIR for a
// directory, 0 for a refusal that is not the system's).
bool write_output(const std::string& path, const uint8_t* data, size_t size,
                  const std::vector<FileId>& inputs, std::string* error, int* error_number = nullptr);

// Creates `dir` and its parents when missing and makes sure a file can be
// created in it; false with a reason naming it as `what` ("dump directory").
bool prepare_directory(const std::string& dir, const std::string& what, std::string* error);

}  // namespace tavo::tool
