#include <android/binder_interface_utils.h>

#include <cstdio>
#include <cstdlib>

namespace ndk {

SharedRefBase::~SharedRefBase() {
    std::call_once(shared_, [] {
        std::fputs("SharedRefBase: destroyed without ever being shared; use SharedRefBase::make\n",
                   stderr);
        std::abort();
    });
}

std::shared_ptr<SharedRefBase> SharedRefBase::ref() {
    std::shared_ptr<SharedRefBase> self;
    std::call_once(shared_, [&] {
        self.reset(this);
        self_ = self;
    });
    return self != nullptr ? self : self_.lock();
}

}  // namespace ndk
