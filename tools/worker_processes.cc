#include "tools/worker_processes.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "tools/fd_io.h"
#include "tools/interrupt.h"

namespace tavo::tool {

namespace {

// Messages on the pipes: a 64-bit length, then as many bytes (a job number is
// the length alone).
bool send_message(int fd, const std::string& message) {
  const uint64_t size = message.size();
  return write_all(fd, &size, sizeof size) && write_all(fd, message.data(), message.size());
}

bool receive_message(int fd, std::string* message) {
  uint64_t size = 0;
  if (!read_all(fd, &size, sizeof size) || size > (uint64_t{1} << 32)) return false;
  message->resize(size);
  return read_all(fd, message->data(), message->size());
}

void close_fd(int* fd) {
  if (*fd >= 0) close(*fd);
  *fd = -1;
}

}  // namespace

bool WorkerProcesses::start(int count, const Main& main, std::string* error) {
  for (int k = 0; k < count; ++k) {
    int to[2], from[2];
    if (pipe2(to, O_CLOEXEC) != 0) break;
    if (pipe2(from, O_CLOEXEC) != 0) {
      close(to[0]);
      close(to[1]);
      break;
    }
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
      // The worker: its parent's dying ends it; it keeps none of the other
      // workers' pipes (their ends of EOF) nor its parent's temporary files.
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      if (getppid() != parent) _exit(128 + SIGTERM);
      forget_temp_files();
      for (Worker& w : workers_) {
        close_fd(&w.to);
        close_fd(&w.from);
      }
      close(to[1]);
      close(from[0]);
      const NextJob next = [fd = to[0]](size_t* job) {
        uint64_t n = 0;
        if (!read_all(fd, &n, sizeof n)) return false;
        *job = static_cast<size_t>(n);
        return true;
      };
      const Answer answer = [fd = from[1]](const std::string& message) { return send_message(fd, message); };
      _exit(main(k, next, answer));
    }
    close(to[0]);
    close(from[1]);
    if (pid < 0) {
      close(to[1]);
      close(from[0]);
      break;
    }
    workers_.push_back({pid, to[1], from[0], false, 0});
  }
  if (workers_.empty()) *error = std::string("cannot start a worker process: ") + strerror(errno);
  return !workers_.empty();
}

size_t WorkerProcesses::run(size_t jobs, const Done& done, const std::function<bool()>& stop) {
  size_t next = 0;
  bool stopping = false;
  for (;;) {
    if (!stopping && stop()) {
      stopping = true;
      signal_all(SIGTERM);
    }
    std::vector<pollfd> fds;
    std::vector<Worker*> polled;
    for (Worker& w : workers_) {
      if (w.pid < 0) continue;
      if (!w.busy && !stopping && next < jobs) {
        const uint64_t n = next;
        if (write_all(w.to, &n, sizeof n)) {
          w.busy = true;
          w.job = next++;
        } else {
          reap(&w);  // gone already: nothing of it is lost
          continue;
        }
      }
      if (w.busy) {
        fds.push_back({w.from, POLLIN, 0});
        polled.push_back(&w);
      }
    }
    // Nothing out: every job handed out has ended, and none is to be handed
    // out (or no worker is left to take one).
    if (fds.empty()) break;
    if (poll(fds.data(), fds.size(), -1) < 0) continue;  // a signal: look at stop() again
    for (size_t i = 0; i < fds.size(); ++i) {
      if (fds[i].revents == 0) continue;
      Worker& w = *polled[i];
      std::string message;
      w.busy = false;
      if (receive_message(w.from, &message)) {
        done(w.job, message, "");
      } else {
        done(w.job, "", reap(&w));
      }
    }
  }
  return next;
}

std::string WorkerProcesses::reap(Worker* w) {
  close_fd(&w->to);
  close_fd(&w->from);
  int status = 0;
  while (waitpid(w->pid, &status, 0) < 0 && errno == EINTR) {
  }
  const std::string who = "worker process " + std::to_string(w->pid);
  w->pid = -1;
  w->busy = false;
  if (WIFSIGNALED(status)) return who + " was ended by signal " + std::to_string(WTERMSIG(status));
  return who + " ended with exit code " + std::to_string(WEXITSTATUS(status));
}

void WorkerProcesses::signal_all(int sig) {
  for (const Worker& w : workers_) {
    if (w.pid > 0) kill(w.pid, sig);
  }
}

WorkerProcesses::~WorkerProcesses() {
  // Closing a worker's job pipe ends it after its current job, which a
  // worker still busy (the parent gave up on it: its output was lost) is
  // asked to stop.
  for (Worker& w : workers_) {
    if (w.busy && w.pid > 0) kill(w.pid, SIGTERM);
    close_fd(&w.to);
  }
  for (Worker& w : workers_) {
    if (w.pid > 0) reap(&w);
  }
}

}  // namespace tavo::tool
