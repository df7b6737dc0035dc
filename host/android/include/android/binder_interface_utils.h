// Host stand-in with the published declarations: what every AIDL interface derives from.
#pragma once

#include <android/binder_auto_utils.h>

#include <memory>
#include <mutex>
#include <utility>

namespace ndk {

/**
 * An object that can always give out a shared pointer to itself.
 *
 * Ownership starts with make() (or the first ref()) and is the shared pointers' alone from then on.
 * As on a phone the process ends when an object dies without ever having been shared: it stood on
 * a stack or in std::make_shared, and a pointer from ref() would have outlived it.
 *
 * Thread-safe.
 */
class SharedRefBase {
  public:
    SharedRefBase() = default;
    virtual ~SharedRefBase();
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    std::shared_ptr<SharedRefBase> ref();

    template <typename T>
    std::shared_ptr<T> ref() {
        return std::static_pointer_cast<T>(ref());
    }

    template <typename T, typename... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        return (new T(std::forward<Args>(args)...))->template ref<T>();
    }

  private:
    std::once_flag shared_;
    std::weak_ptr<SharedRefBase> self_;
};

class ICInterface : public SharedRefBase {
  public:
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    // What `dumpsys` asks for; nothing is written unless an implementation overrides it.
    virtual binder_status_t dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) {
        return STATUS_OK;
    }
};

}  // namespace ndk

/** The identity of a local object. Keeps the object alive, as binders of a phone do. */
struct AIBinder {
    std::shared_ptr<ndk::ICInterface> object;
};

namespace ndk {

/** Base of an interface's implementation in this process. */
template <typename Interface>
class BnCInterface : public Interface {
  public:
    // The same binder as long as somebody holds it.
    SpAIBinder asBinder() override {
        std::lock_guard lock(lock_);
        std::shared_ptr<AIBinder> binder = binder_.lock();
        if (binder == nullptr) {
            binder = std::make_shared<AIBinder>(AIBinder{this->template ref<ICInterface>()});
            binder_ = binder;
        }
        return SpAIBinder(std::move(binder));
    }

    bool isRemote() override { return false; }

  private:
    std::mutex lock_;
    std::weak_ptr<AIBinder> binder_;  // Guarded by lock_.
};

}  // namespace ndk
