// Jobs on worker processes: forks of the tool, made before it starts any
// thread, each handed job numbers through a pipe and answering each with one
// message through another. A worker that dies takes only the job it was on
// with it. Every worker is ended and reaped before the object goes, and the
// system ends a worker whose parent died.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tavo::tool {

class WorkerProcesses {
 public:
  // In a worker: the next job handed to it (false when there are no more),
  // and how it answers one.
  using NextJob = std::function<bool(size_t* job)>;
  using Answer = std::function<bool(const std::string& message)>;
  // A worker's whole life; the process ends with the returned exit code.
  using Main = std::function<int(int worker, const NextJob& next, const Answer& answer)>;
  // In the parent: a job's answer, or why it has none (its worker died).
  using Done = std::function<void(size_t job, const std::string& answer, const std::string& lost)>;

  WorkerProcesses() = default;
  ~WorkerProcesses();
  WorkerProcesses(const WorkerProcesses&) = delete;
  WorkerProcesses& operator=(const WorkerProcesses&) = delete;

  // Starts `count` workers running `main`; false with the reason when none
  // could be started.
  bool start(int count, const Main& main, std::string* error);

  // Hands out jobs 0 ... jobs - 1 in order, one at a time to each free worker,
  // and calls done() for each as it ends. Once stop() is true no job is handed
  // out any more, and the workers are sent SIGTERM (which ends the job they
  // are on through the library's stop flag); returns when every job handed
  // out has ended. The jobs not handed out are those from the returned number
  // on.
  size_t run(size_t jobs, const Done& done, const std::function<bool()>& stop);

 private:
  struct Worker {
    pid_t pid = -1;
    int to = -1, from = -1;  // job numbers out, answers in
    bool busy = false;
    size_t job = 0;
  };
  // Ends the worker's pipes and waits for it; how it ended, for a lost job.
  std::string reap(Worker* w);
  void signal_all(int sig);

  std::vector<Worker> workers_;
};

}  // namespace tavo::tool
