#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>

namespace virtual_dsp {

/**
 * A DSP in a process of its own (`sthal dsp`), on the board of this process. It takes requests and
 * can be killed. One at a time. Fails the test when anything hangs for a minute. Used by one
 * thread.
 */
class DspProcess {
  public:
    DspProcess() = default;
    // Lets the process end by itself.
    ~DspProcess();
    DspProcess(const DspProcess&) = delete;
    DspProcess& operator=(const DspProcess&) = delete;

    // Returns when the nodes are there.
    void Start();
    // Has `sthal dsp --control` carry out a verb, which must go well.
    void Ask(const std::string& verb) { EXPECT_EQ("ok", Answer(verb)) << verb; }
    // "ok" or "error ...".
    std::string Answer(const std::string& verb);
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

// The number of mounts in this process's view of the file system.
size_t MountCount();

}  // namespace virtual_dsp
