#define LOG_TAG "SoundTriggerService"

#include "examples/vendor_service/sound_trigger_service.h"

#include <aidl/android/media/soundtrigger/SoundModelType.h>
#include <aidl/android/media/soundtrigger/Status.h>
#include <android-base/logging.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vendor_service_example {

using ::aidl::android::media::soundtrigger::SoundModel;
using ::aidl::android::media::soundtrigger::SoundModelType;
using ::aidl::android::media::soundtrigger::Status;
using ::ndk::ScopedAStatus;
namespace hal = ::vendor::quarno::brindlecove::audio::hal;

namespace {

constexpr size_t kMaxModels = 3;  // As getProperties says.

ScopedAStatus Refused(Status status, const std::string& why) {
    LOG(WARNING) << why << ": " << toString(status);
    return ScopedAStatus::fromServiceSpecificErrorWithMessage(static_cast<int32_t>(status),
                                                              why.c_str());
}

// The caller's mistake, which trying again would not change.
ScopedAStatus Mistaken(binder_exception_t exception, const std::string& why) {
    LOG(WARNING) << why;
    return ScopedAStatus::fromExceptionCodeWithMessage(exception, why.c_str());
}

ScopedAStatus UnknownModel(const std::string& call, int32_t handle) {
    return Mistaken(EX_ILLEGAL_ARGUMENT, call + ": no model " + std::to_string(handle));
}

// Of a call that had nothing wrong with it, as far as could be seen from here: so whatever came of
// it is for the HAL's log to tell.
ScopedAStatus FromResult(const std::string& call, int result) {
    if (result == 0) return ScopedAStatus::ok();
    return Refused(Status::INTERNAL_ERROR, call + ": " + std::to_string(result));
}

bool IsWellFormed(const SoundModel& model) {
    const bool has_type =
            model.type == SoundModelType::KEYPHRASE || model.type == SoundModelType::GENERIC;
    return has_type && model.dataSize > 0 && model.data.get() >= 0;
}

}  // namespace

// --- life ---

SoundTriggerService::SoundTriggerService(SoundCardState* monitor)
    : monitor_(monitor), hal_(hal::soundtrigger::SoundTriggerHalBuilder::BuildSoundTriggerHal()) {
    hal_->SetSoundCardState(monitor_);
    if (!hal_->Initialize()) return;
    // The monitor tells of changes. That the DSP has been there all the time has to be passed on; a
    // report that comes meanwhile may be overtaken by that, and is told again.
    bool is_told_online = false;
    for (bool is_online = true; is_online != is_told_online; is_online = monitor_->IsOnline()) {
        hal_->OnSoundCardStateChanged(is_online);
        is_told_online = is_online;
    }
}

SoundTriggerService::~SoundTriggerService() {
    // Before the HAL goes, which does not undo its registration.
    monitor_->UnregisterListener(hal_.get());
}

std::unique_ptr<SoundTriggerService::CaptureStream> SoundTriggerService::OpenCapture(
        int io_handle, int channels, bool zero_latency) {
    hal::soundtrigger::SoundTriggerDriverOperationsBuilder builder;
    builder.hal = hal_.get();
    builder.io_handle = io_handle;
    builder.channel_count = channels;
    builder.is_internal_force = zero_latency;
    auto stream = builder.Build();
    if (stream == nullptr) {
        ForgetDroppedModels();
        return nullptr;
    }
    if (!stream->Start()) return nullptr;
    return stream;
}

// The HAL borrows the framework's model for a zero latency capture, and drops it when the DSP
// refuses. Of a model that is not started nothing shows that; its next call fails.
void SoundTriggerService::ForgetDroppedModels() {
    // Another model with the same io handle may be what GetModelHandle finds. Only when it finds
    // none it is certain that this one is gone.
    const auto is_dropped = [this](const Model& model) {
        return model.io_handle && hal_->GetModelHandle(*model.io_handle) < 0;
    };
    while (true) {
        std::list<Model>::iterator dropped;
        int32_t handle = kNoHandle;
        {
            std::lock_guard lock(lock_);
            dropped = std::find_if(models_.begin(), models_.end(), is_dropped);
            if (dropped == models_.end()) return;
            handle = std::exchange(dropped->handle, kNoHandle);
            dropped->io_handle.reset();
        }
        if (!dropped->callback->modelUnloaded(handle).isOk()) {
            LOG(WARNING) << "modelUnloaded: the framework did not take it";
        }
        RemoveModel(dropped);
    }
}

ScopedAStatus SoundTriggerService::registerGlobalCallback(
        const std::shared_ptr<GlobalCallback>& callback) {
    std::lock_guard lock(lock_);
    global_callback_ = callback;
    return ScopedAStatus::ok();
}

ScopedAStatus SoundTriggerService::getProperties(Properties* properties) {
    Properties current;
    const int result = hal_->GetProperties(&current);
    std::lock_guard lock(lock_);
    if (result == 0) properties_ = current;
    // A DSP that is just being restarted still is the same one.
    if (properties_.uuid.empty()) return FromResult("getProperties", result);
    *properties = properties_;
    return ScopedAStatus::ok();
}

// --- models ---

ScopedAStatus SoundTriggerService::loadSoundModel(const SoundModel& model,
                                                  const std::shared_ptr<Callback>& callback,
                                                  int32_t* handle) {
    return Load(model, callback, handle,
                [&](int* loaded) { return hal_->LoadSoundModel(model, callback, loaded); });
}

ScopedAStatus SoundTriggerService::loadPhraseSoundModel(const PhraseSoundModel& model,
                                                        const std::shared_ptr<Callback>& callback,
                                                        int32_t* handle) {
    return Load(model.common, callback, handle,
                [&](int* loaded) { return hal_->LoadPhraseSoundModel(model, callback, loaded); });
}

ScopedAStatus SoundTriggerService::Load(const SoundModel& model,
                                        const std::shared_ptr<Callback>& callback, int32_t* handle,
                                        const std::function<int(int*)>& load_in_hal) {
    if (!IsWellFormed(model)) return Mistaken(EX_ILLEGAL_ARGUMENT, "load: not a sound model");
    if (callback == nullptr) return Mistaken(EX_ILLEGAL_ARGUMENT, "load: no callback");
    std::list<Model>::iterator added;
    {
        std::lock_guard lock(lock_);
        // The HAL refuses these, too, but with the same result as a model that the DSP does not
        // take. The framework waits for room, so it has to be told that this is what is missing.
        if (models_.size() >= kMaxModels) {
            return Refused(Status::RESOURCE_CONTENTION, "load: no room for another model");
        }
        const auto is_same = [&](const Model& m) { return m.vendor_uuid == model.vendorUuid; };
        if (std::any_of(models_.begin(), models_.end(), is_same)) {
            return Refused(Status::RESOURCE_CONTENTION, "load: the model is loaded already");
        }
        models_.push_back({model.vendorUuid, kNoHandle, false, std::nullopt, callback});
        added = std::prev(models_.end());
    }
    int loaded = kNoHandle;
    if (const int result = load_in_hal(&loaded); result != 0) {
        RemoveModel(added);
        return FromResult("load", result);
    }
    std::lock_guard lock(lock_);
    added->handle = loaded;
    *handle = loaded;
    return ScopedAStatus::ok();
}

ScopedAStatus SoundTriggerService::unloadSoundModel(int32_t handle) {
    std::list<Model>::iterator model;
    std::optional<int32_t> io_handle;
    {
        std::lock_guard lock(lock_);
        model = Find(handle);
        if (model == models_.end()) return UnknownModel("unloadSoundModel", handle);
        // The HAL gives the handle to the next model as soon as it is free, and the model is this
        // call's from now on: nobody else may find it gone.
        model->handle = kNoHandle;
        io_handle = std::exchange(model->io_handle, std::nullopt);
    }
    // Waits for an event of the model that is being delivered.
    if (const int result = hal_->UnloadSoundModel(handle); result != 0) {
        std::lock_guard lock(lock_);
        model->handle = handle;
        model->io_handle = io_handle;
        return FromResult("unloadSoundModel", result);
    }
    RemoveModel(model);
    return ScopedAStatus::ok();
}

void SoundTriggerService::RemoveModel(std::list<Model>::iterator model) {
    std::shared_ptr<GlobalCallback> callback;
    {
        std::lock_guard lock(lock_);
        models_.erase(model);
        callback = global_callback_;
    }
    // Whoever was refused for want of room may try again.
    if (callback != nullptr && !callback->onResourcesAvailable().isOk()) {
        LOG(WARNING) << "onResourcesAvailable: the framework did not take it";
    }
}

std::list<SoundTriggerService::Model>::iterator SoundTriggerService::Find(int32_t handle) {
    if (handle == kNoHandle) return models_.end();
    return std::find_if(models_.begin(), models_.end(),
                        [handle](const Model& model) { return model.handle == handle; });
}

std::optional<SoundTriggerService::Model> SoundTriggerService::Snapshot(int32_t handle) {
    std::lock_guard lock(lock_);
    const auto model = Find(handle);
    if (model == models_.end()) return std::nullopt;
    return *model;
}

// --- recognition ---

ScopedAStatus SoundTriggerService::startRecognition(int32_t handle, int32_t device_handle,
                                                    int32_t io_handle,
                                                    const RecognitionConfig& config) {
    const auto model = Snapshot(handle);
    if (!model) return UnknownModel("startRecognition", handle);
    // Before the call: its event may come, and be answered by a stop, before the call returns.
    SetStarted(handle, true, std::nullopt);
    const int result = hal_->StartRecognition(handle, device_handle, io_handle, config);
    if (result == 0) {
        SetIoHandle(handle, io_handle);
    } else {
        SetStarted(handle, model->is_started, model->io_handle);
    }
    return FromResult("startRecognition", result);
}

ScopedAStatus SoundTriggerService::stopRecognition(int32_t handle) {
    const auto model = Snapshot(handle);
    if (!model) return UnknownModel("stopRecognition", handle);
    // Nothing to do is no failure: the framework stops again when it is not sure.
    if (!model->is_started) return ScopedAStatus::ok();
    SetStarted(handle, false, std::nullopt);
    const int result = hal_->StopRecognition(handle);
    if (result != 0) SetStarted(handle, true, model->io_handle);
    return FromResult("stopRecognition", result);
}

void SoundTriggerService::SetStarted(int32_t handle, bool is_started,
                                     std::optional<int32_t> io_handle) {
    std::lock_guard lock(lock_);
    const auto model = Find(handle);
    if (model == models_.end()) return;
    model->is_started = is_started;
    model->io_handle = io_handle;
}

// Not of one that has been stopped meanwhile.
void SoundTriggerService::SetIoHandle(int32_t handle, int32_t io_handle) {
    std::lock_guard lock(lock_);
    const auto model = Find(handle);
    if (model != models_.end() && model->is_started) model->io_handle = io_handle;
}

ScopedAStatus SoundTriggerService::forceRecognitionEvent(int32_t handle) {
    if (!Snapshot(handle)) return UnknownModel("forceRecognitionEvent", handle);
    const int result = hal_->ForceRecognitionEvent(handle);
    if (result == -EINVAL) {
        return Mistaken(EX_ILLEGAL_STATE, "forceRecognitionEvent: model " + std::to_string(handle) +
                                                  " is not detecting");
    }
    return FromResult("forceRecognitionEvent", result);
}

// --- parameters ---

ScopedAStatus SoundTriggerService::queryParameter(int32_t, ModelParameter,
                                                  std::optional<ModelParameterRange>* range) {
    range->reset();  // Which is how a parameter is told not to be supported.
    return ScopedAStatus::ok();
}

ScopedAStatus SoundTriggerService::getParameter(int32_t, ModelParameter parameter, int32_t*) {
    return Refused(Status::OPERATION_NOT_SUPPORTED, "getParameter: " + toString(parameter));
}

ScopedAStatus SoundTriggerService::setParameter(int32_t, ModelParameter parameter, int32_t) {
    return Refused(Status::OPERATION_NOT_SUPPORTED, "setParameter: " + toString(parameter));
}

// --- dump ---

binder_status_t SoundTriggerService::dump(int fd, const char** args, uint32_t arg_count) {
    hal::utils::dumpsys::DumpsysInfo info(fd);
    info.args.assign(args, args + arg_count);
    hal_->Dump(info);
    return STATUS_OK;
}

}  // namespace vendor_service_example
