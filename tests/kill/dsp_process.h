#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

namespace virtual_dsp {

/**
 * A DSP in a process of its own (`sthal dsp`) on the board that this process is on, to be asked for
 * things and to be killed. One at a time. Fails the test when anything takes longer than a few
 * seconds. Used by one thread.
 */
class DspProcess {
  public:
    DspProcess() = default;
    // Lets it end by itself.
    ~DspProcess();
    DspProcess(const DspProcess&) = delete;
    DspProcess& operator=(const DspProcess&) = delete;

    // Returns when the nodes are there.
    void Start();
    // The answer to a request of `sthal dsp --control`, without its "ok ".
    std::string Ask(const std::string& request);
    // SIGKILL; returns when the process is gone.
    void Kill();

  private:
    std::string ReadLine();
    void Await();

    pid_t process_ = -1;
    int requests_ = -1;
    int answers_ = -1;
    std::string pending_;
};

// What is mounted in this process's view of the file system.
size_t MountCount();

}  // namespace virtual_dsp
