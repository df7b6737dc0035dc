// Properties, the table of clients, loading and unloading.
#define LOG_TAG "StHal::SoundTriggerHal"

#include <android-base/logging.h>

#include <cerrno>
#include <utility>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using ::aidl::android::media::soundtrigger::SoundModelType;

int SoundTriggerHal::GetProperties(Properties* properties) {
    const std::optional<LibraryArchitecture> library = adapter_->GetLibraryArchitecture();
    if (!library) {
        LOG(ERROR) << "GetProperties: Can't get information from DSP";
        return -EINVAL;
    }
    // Not in the member: callers run side by side, without a lock.
    Properties current = properties_;
    current.version = static_cast<int32_t>(library->library_version);
    current.supportedModelArch = std::to_string(current.version) + "," + library->architecture;
    LOG(INFO) << "GetProperties: Library and architecture = " << current.supportedModelArch;
    *properties = std::move(current);
    return 0;
}

int SoundTriggerHal::LoadSoundModel(const SoundModel& model, Callback callback, int* handle) {
    return LoadModel(model, std::move(callback), handle);
}

int SoundTriggerHal::LoadPhraseSoundModel(const PhraseSoundModel& model, Callback callback,
                                          int* handle) {
    return LoadModel(model.common, std::move(callback), handle);
}

int SoundTriggerHal::LoadModel(const SoundModel& model, Callback callback, int* handle) {
    std::lock_guard lock(lock_);
    const int32_t new_handle = SmallestFreeHandle(1);
    if (new_handle > properties_.maxSoundModels) {
        LOG(ERROR) << "LoadModel: Loaded count " << new_handle << " is over max number "
                   << properties_.maxSoundModels;
        return -EINVAL;
    }
    if (IsLoaded(model.vendorUuid)) return -EINVAL;
    if (model.type == SoundModelType::KEYPHRASE && StopInternalForce() != 0) {
        LOG(ERROR) << "LoadModel: Failed to stop internal client";
        return -EINVAL;
    }
    SoundTriggerHalClient* const client = AddClient(new_handle);
    if (client == nullptr) {
        LOG(ERROR) << "LoadModel: Invalid client with handle " << new_handle;
        return -EINVAL;
    }
    if (const int result = client->Initialize(model, std::move(callback)); result != 0) {
        LOG(ERROR) << "LoadModel: Client initializes failed.";
        RemoveClient(new_handle);
        return result;
    }
    if (is_dsp_online_) {
        if (const int result = client->RequestLoadModel(); result != 0) {
            RemoveClient(new_handle);
            LOG(ERROR) << "LoadModel: Load model failed with handle " << new_handle;
            return result;
        }
    } else {
        LOG(WARNING) << "LoadModel: Dsp isn't ready, restore state for " << new_handle;
    }
    client->is_loaded_ = true;
    *handle = new_handle;
    LOG(INFO) << "LoadModel: Loaded model with handle " << new_handle;
    // The control thread is not woken: a model that is only loaded gives it nothing to wait for.
    return 0;
}

int SoundTriggerHal::UnloadSoundModel(int handle) {
    std::lock_guard lock(lock_);
    SoundTriggerHalClient* client = FindRequested("UnloadSoundModel", handle);
    if (client == nullptr) return -EINVAL;
    client = ReclaimHotword("UnloadSoundModel", client);
    if (client == nullptr) return -EINVAL;
    if (is_dsp_online_) {
        if (const int result = client->RequestUnloadModel(); result != 0) {
            LOG(ERROR) << "UnloadSoundModel: unLoad model failed with handle " << handle;
            return result;
        }
    } else {
        LOG(WARNING) << "UnloadSoundModel: Dsp not ready, just release client";
    }
    LOG(INFO) << "UnloadSoundModel: Unload model with handle " << handle;
    RemoveClient(handle);
    SendControlMessage();
    delivery_.WaitForCallback(handle, lock_);
    return 0;
}

int SoundTriggerHal::GetModelHandle(int io_handle) const {
    return started_io_handles_.FindModel(io_handle).value_or(-EINVAL);
}

int32_t SoundTriggerHal::SmallestFreeHandle(int32_t from) const {
    int32_t handle = from;
    while (clients_.contains(handle)) ++handle;
    return handle;
}

SoundTriggerHalClient* SoundTriggerHal::FindClient(int32_t handle) const {
    const auto found = clients_.find(handle);
    return found == clients_.end() ? nullptr : found->second.get();
}

// The client that the framework's request is for; null, after an ERROR line, without one.
SoundTriggerHalClient* SoundTriggerHal::FindRequested(const char* operation, int handle) const {
    SoundTriggerHalClient* const client = FindClient(handle);
    if (client == nullptr) {
        LOG(ERROR) << operation << ": client doesn't exist with handle " << handle;
    }
    return client;
}

// Ends internal recognition before a request for a hotword model. Returns the client that the
// request is for; null, after an ERROR line, to refuse it.
SoundTriggerHalClient* SoundTriggerHal::ReclaimHotword(const char* operation,
                                                       SoundTriggerHalClient* client) {
    if (client->engine_type_ != EngineType::Hotword) return client;
    const int32_t handle = client->handle_;
    if (StopInternalForce() != 0) {
        LOG(ERROR) << operation << ": Failed to stop internal client";
        return nullptr;
    }
    // Looked up again: an internal client is gone now.
    return FindRequested(operation, handle);
}

SoundTriggerHalClient* SoundTriggerHal::AddClient(int32_t handle) {
    auto client = SoundTriggerHalClient::Create(handle, adapter_.get());
    if (client != nullptr) clients_.emplace(handle, std::move(client));
    return FindClient(handle);
}

void SoundTriggerHal::RemoveClient(int32_t handle) {
    clients_.erase(handle);
    delivery_.Drop(handle);  // The next model may get this handle, and must not get the event.
    PublishStartedClients();
}

void SoundTriggerHal::PublishStartedClients() {
    StartedIoHandles::Table io_handles;
    for (const auto& [handle, client] : clients_) {
        CHECK(client.get() != nullptr) << ": Abnormal client exists with handle: " << handle;
        if (client->is_started_) io_handles.at(static_cast<size_t>(handle)) = client->io_handle_;
    }
    started_io_handles_.Publish(io_handles);
}

bool SoundTriggerHal::HasActiveClient() const {
    for (const auto& [handle, client] : clients_) {
        CHECK(client.get() != nullptr) << ": Abnormal client exists with handle: " << handle;
        if (client->is_started_ || client->is_internal_force_active_) return true;
    }
    return false;
}

bool SoundTriggerHal::IsLoaded(const std::string& vendor_uuid) const {
    for (const auto& [handle, client] : clients_) {
        if (client->vendor_uuid() != vendor_uuid) continue;
        LOG(ERROR) << "LoadModel: The model " << handle << " with uuid " << vendor_uuid
                   << " is existed";
        return true;
    }
    return false;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
