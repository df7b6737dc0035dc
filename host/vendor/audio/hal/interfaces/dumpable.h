#pragma once

namespace vendor::quarno::brindlecove::audio::hal {

namespace utils::dumpsys {
struct DumpsysInfo;
}

/** Something that can write its state into a bug report. */
class Dumpable {
  public:
    virtual ~Dumpable() = default;

    virtual void Dump(const utils::dumpsys::DumpsysInfo& info) = 0;
};

}  // namespace vendor::quarno::brindlecove::audio::hal
