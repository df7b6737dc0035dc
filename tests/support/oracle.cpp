#include "tests/support/oracle.h"

#include <cerrno>
#include <sstream>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using Kind = Step::Kind;
using enum client_table::State;

namespace {

constexpr int kMaxHandle = 3;
// The usecases in the order in which steps number them: primary, deep buffer, compress, haptic.
constexpr std::array<bool, 4> kCountsByTracks = {true, false, false, true};

}  // namespace

std::string ToText(const std::vector<ClientView>& clients) {
    std::ostringstream text;
    for (const ClientView& client : clients) {
        text << "\n    " << client.handle << ": engine " << client.engine << ", io "
             << client.io_handle << ", state " << client.state << ", loaded " << client.is_loaded
             << ", started " << client.is_started << ", aec " << client.is_aec_enabled
             << ", forced " << client.is_forced << ", internal " << client.is_internal;
    }
    return clients.empty() ? "none" : text.str();
}

std::string ToText(const std::vector<EventView>& events) {
    std::ostringstream text;
    for (const EventView& event : events) {
        text << "\n    " << (event.is_phrase ? "phrase" : "generic") << " event of " << event.handle
             << ", capture " << event.is_capture_available << ", extra " << event.extra << ", \""
             << event.payload << '"';
    }
    return events.empty() ? "none" : text.str();
}

void Oracle::RestartHal() {
    clients_.clear();
    is_online_ = is_docked_ = is_mic_swapped_ = false;
    routed_ = {};
    tracks_ = {};
    for (const DspOp off :
         {DspOp::kEraser, DspOp::kMicSwap, DspOp::kReference, DspOp::kApProcess}) {
        (void)dsp_.Answer({off, 0});
    }
    for (const int engine : {1, 2}) {
        (void)dsp_.Answer({DspOp::kStop, engine});
        (void)dsp_.Answer({DspOp::kUnload, engine});
    }
    (void)dsp_.Answer({DspOp::kTuning, 1});
}

std::optional<int> Oracle::Apply(const Step& step) {
    has_read_ = is_recovered_ = false;
    const std::optional<int> result = ApplyStep(step);
    Deliver();
    return result;
}

std::optional<int> Oracle::ApplyStep(const Step& step) {
    switch (step.kind) {
        case Kind::kLoad:
            return Load(step.a, step.b, step.c);
        case Kind::kUnload:
            return Unload(step.a);
        case Kind::kStart:
            return Start(step.a, step.b, step.c);
        case Kind::kStop:
            return Stop(step.a);
        case Kind::kForce:
            return Force(step.a);
        case Kind::kProperties:
            return dsp_.Answer({DspOp::kQuery, 0}) == 0 ? 0 : -EINVAL;
        case Kind::kInternalForce:
            return InternalForce();
        case Kind::kStopInternalForce:
            return StopInternalForce();
        case Kind::kStartBuffering:
            return StartBuffering(step.a, step.b != 0);
        case Kind::kRead:
            return Read(step.a, step.b != 0);
        case Kind::kDock:
            Dock(step.a != 0);
            break;
        case Kind::kMicSwap:
            MicSwap(step.a != 0);
            return 0;
        case Kind::kRoute:
            Route(step.a);
            break;
        case Kind::kMetadata:
            Metadata(static_cast<size_t>(step.a), step.b);
            break;
        case Kind::kOnline:
            Online(step.a != 0);
            break;
        case Kind::kDetect:
            dsp_.Detect(step.a);
            break;
        case Kind::kCrash:
            dsp_.Crash();
            if (step.a != 0) Online(false);
            break;
        case Kind::kRecover:
            Recover();
            break;
        case Kind::kFault:
            dsp_.Fail({static_cast<DspOp>(step.a), step.b}, step.c);
            break;
        case Kind::kReadFault:
            break;
        case Kind::kRestartHal:
            RestartHal();
            Online(dsp_.view().up);
            break;
    }
    return std::nullopt;
}

void Oracle::Metadata(size_t port, int tracks) {
    if (!kCountsByTracks[port]) return;
    tracks_[port] = tracks;
    UpdateAec();
}

// --- the framework ---

int Oracle::Load(int type, int model, int defect) {
    const int handle = SmallestFree(1);
    if (handle > kMaxHandle) return -EINVAL;
    for (const auto& [other, client] : clients_) {
        if (client.model == model) return -EINVAL;
    }
    if (type == 0 && StopInternalForce() != 0) return -EINVAL;
    if (type > 1 || defect != 0) return -EINVAL;
    Client client;
    client.handle = handle;
    client.engine = type == 0 ? 1 : 2;
    client.model = model;
    client.crc = model_crcs_[static_cast<size_t>(type)][static_cast<size_t>(model)];
    if (is_online_ && !Carry(client, Request::kLoad)) return -EINVAL;
    client.is_loaded = true;
    clients_[handle] = client;
    return handle;
}

int Oracle::Unload(int handle) {
    if (Find(handle) == nullptr) return -EINVAL;
    if (Find(handle)->engine == kHotwordEngine && StopInternalForce() != 0) return -EINVAL;
    if (Find(handle) == nullptr) return -EINVAL;
    if (is_online_ && !Carry(*Find(handle), Request::kUnload)) return -EINVAL;
    clients_.erase(handle);
    return 0;
}

int Oracle::Start(int handle, int io_handle, int configuration) {
    if (Find(handle) == nullptr) return -EINVAL;
    if (Find(handle)->engine == kHotwordEngine && StopInternalForce() != 0) return -EINVAL;
    Client* const client = Find(handle);
    if (client == nullptr) return -EINVAL;
    if (is_online_ && !Carry(*client, Request::kDetect)) return -EINVAL;
    client->configuration = configuration;
    client->is_started = true;
    client->io_handle = io_handle;
    UpdateAec();
    return 0;
}

int Oracle::Stop(int handle) {
    if (Find(handle) == nullptr || !Find(handle)->is_started) return -EINVAL;
    if (Find(handle)->engine == kHotwordEngine && StopInternalForce() != 0) return -EINVAL;
    Client* const client = Find(handle);
    if (client == nullptr) return -EINVAL;
    SwitchAec(false);
    if (is_online_ && !Carry(*client, Request::kLoad)) return -EINVAL;
    client->is_started = false;
    return 0;
}

int Oracle::Force(int handle) {
    Client* const client = Find(handle);
    if (client == nullptr) return -EINVAL;
    if (!is_online_) return 0;
    if (client->state == kCallback) return 0;
    if (client->state != kDetecting) return -EINVAL;
    return dsp_.Answer({DspOp::kForce, client->engine});
}

// --- captures ---

int Oracle::InternalForce() {
    if (!is_online_) return -EINVAL;
    Client* target = nullptr;
    for (auto& [handle, client] : clients_) {
        if (client.engine != kHotwordEngine) continue;
        if (client.state == kCallback || client.state == kBuffering) return -EINVAL;
        target = &client;
    }
    if (target == nullptr) {
        const int handle = SmallestFree(0);
        if (handle > kMaxHandle) return -EINVAL;
        target = &clients_[handle];
        target->handle = handle;
        target->engine = kHotwordEngine;
        target->is_internal = true;
    }
    if (!Carry(*target, Request::kForce)) {
        clients_.erase(target->handle);
        return -EINVAL;
    }
    UpdateAec();
    target->is_forced = true;
    return 0;
}

int Oracle::StopInternalForce() {
    Client* target = nullptr;
    for (auto& [handle, client] : clients_) {
        if (client.engine == kHotwordEngine && client.is_forced) target = &client;
    }
    if (target == nullptr || !is_online_) return 0;
    bool is_done = Carry(*target, Request::kLoad);
    UpdateAec();
    if (target->is_internal) {
        is_done = Carry(*target, Request::kUnload);
        clients_.erase(target->handle);
    } else {
        target->is_forced = false;
        if (target->is_started) {
            is_done = Carry(*target, Request::kDetect);
            UpdateAec();
        }
    }
    return is_done ? 0 : -EINVAL;
}

int Oracle::StartBuffering(int io_handle, bool is_forced) {
    for (auto& [handle, client] : clients_) {
        const bool is_meant =
                is_forced ? client.is_forced : client.is_started && client.io_handle == io_handle;
        if (!is_meant) continue;
        if (!Carry(client, Request::kBuffer)) return -EINVAL;
        return is_forced ? kHotwordEngine : client.engine;
    }
    return -EINVAL;
}

// A DSP without audio makes silence, which is no error.
int Oracle::Read(int engine, bool is_silent) {
    if (!is_online_) return -ENODEV;
    return dsp_.Answer({DspOp::kRead, engine}) == 0 && !is_silent ? 1 : 0;
}

// --- the environment ---

void Oracle::Dock(bool is_docked) {
    if (is_docked == is_docked_) return;
    is_docked_ = is_docked;
    if (!is_online_) return;
    (void)Ask(DspOp::kReference, is_docked_);
    (void)Ask(DspOp::kApProcess, is_docked_);
    (void)Ask(DspOp::kTuning, is_docked_ ? 2 : 1);
}

void Oracle::MicSwap(bool is_on) {
    if (is_on == is_mic_swapped_) return;
    is_mic_swapped_ = is_on;
    if (is_online_) (void)Ask(DspOp::kMicSwap, is_mic_swapped_);
}

// A graph without any of them clears all; else those that are not in it keep what they had.
void Oracle::Route(int usecases) {
    for (size_t k = 0; k < routed_.size(); ++k) {
        if (usecases == 0) routed_[k] = false;
        if ((usecases >> k & 1) != 0) routed_[k] = true;
    }
    UpdateAec();
}

void Oracle::Online(bool is_online) {
    is_online_ = is_online;
    if (!is_online) {
        for (auto& [handle, client] : clients_) client.state = kUnloaded;
        return;
    }
    for (auto& [handle, client] : clients_) {
        if (client.is_loaded) (void)Carry(client, Request::kLoad);
        if (client.is_started) (void)Carry(client, Request::kDetect);
    }
    (void)Ask(DspOp::kMicSwap, is_mic_swapped_);
    (void)Ask(DspOp::kReference, is_docked_);
    (void)Ask(DspOp::kApProcess, is_docked_);
    (void)Ask(DspOp::kTuning, is_docked_ ? 2 : 1);
    UpdateAec();
}

void Oracle::Recover() {
    const bool was_down = !dsp_.view().up;
    const uint64_t failures = dsp_.failures();
    if (was_down) Online(false);
    dsp_.Boot();
    Online(true);
    is_recovered_ = was_down && dsp_.failures() == failures;
}

std::optional<DspView> Oracle::Wanted() const {
    if (!is_recovered_) return std::nullopt;
    DspView wanted = dsp_.view();  // The echo canceller is the playback's matter.
    wanted.hotword = wanted.ambient = {};
    wanted.mic_swap = is_mic_swapped_;
    wanted.dock_reference = wanted.dock_ap_process = is_docked_;
    wanted.tuning = is_docked_ ? 2 : 1;
    // An engine has room for one model: of several, the last one restored.
    for (const auto& [handle, client] : clients_) {
        if (!client.is_loaded) continue;
        DspView::EngineView& engine = wanted.engine(client.engine);
        engine.model = client.crc;
        if (client.is_started) engine.state = DspView::State::kDetecting;
    }
    return wanted;
}

// --- what the DSP does for a client ---

bool Oracle::Ask(DspOp op, int argument, uint32_t model) {
    return dsp_.Answer({op, argument}, model) == 0;
}

bool Oracle::Carry(Client& client, Request request) {
    const Transition& transition = TransitionOf(client.state, request, client.engine);
    for (const auto& [op, failure] : transition.calls) {
        const int engine = op == DspOp::kInternal ? 0 : EngineOf(client.state, client.engine);
        if (!Ask(op, engine, client.crc)) return false;
    }
    if (transition.is_allowed()) client.state = transition.next;
    return transition.is_allowed();
}

// --- the rest ---

void Oracle::Deliver() {
    const auto is_watched = [this] {
        for (const auto& [handle, client] : clients_) {
            if (client.is_started || client.is_forced) return is_online_;
        }
        return false;
    };
    while (is_watched() && dsp_.has_record()) {
        const DspRecord record = *dsp_.TakeRecord();
        has_read_ = true;
        for (auto& [handle, client] : clients_) {
            if (!client.is_started || client.engine != record.engine) continue;
            if (client.is_forced || !Carry(client, Request::kCallback)) break;
            if (client.is_internal) break;
            const StartConfiguration& asked =
                    kConfigurations[static_cast<size_t>(client.configuration)];
            const bool is_phrase = client.engine == kHotwordEngine;
            events_.push_back({handle, is_phrase, !is_phrase || asked.is_capture_requested,
                               is_phrase ? asked.extra : -1, record.payload});
            break;
        }
    }
}

void Oracle::UpdateAec() {
    bool is_wanted = false;
    for (size_t k = 0; k < routed_.size(); ++k) {
        if (routed_[k] && (!kCountsByTracks[k] || tracks_[k] > 0)) is_wanted = true;
    }
    SwitchAec(is_wanted);
}

void Oracle::SwitchAec(bool is_wanted) {
    for (auto& [handle, client] : clients_) {
        if (client.engine != kHotwordEngine || client.is_aec_enabled == is_wanted) continue;
        if (is_wanted && !client.is_started) continue;
        client.is_aec_enabled = is_wanted;
        if (!is_online_) continue;
        const size_t configuration = static_cast<size_t>(client.configuration);
        if (is_wanted) (void)Ask(DspOp::kReference, is_docked_);
        (void)Ask(DspOp::kEraser, is_wanted);
        if (!is_wanted) (void)Ask(DspOp::kReference, is_docked_);
        if (kConfigurations[configuration].audio_capabilities == 1) {
            (void)Ask(DspOp::kNeuralAec, is_wanted);
        }
    }
}

Oracle::Client* Oracle::Find(int handle) {
    const auto found = clients_.find(handle);
    return found == clients_.end() ? nullptr : &found->second;
}

int Oracle::SmallestFree(int from) const {
    while (clients_.contains(from)) ++from;
    return from;
}

std::vector<ClientView> Oracle::clients() const {
    std::vector<ClientView> views;
    for (const auto& [handle, client] : clients_) views.push_back(client);
    return views;
}

int Oracle::ModelHandleOf(int io_handle) const {
    for (const auto& [handle, client] : clients_) {
        if (client.is_started && client.io_handle == io_handle) return handle;
    }
    return -EINVAL;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
