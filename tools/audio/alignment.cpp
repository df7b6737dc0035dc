#include "tools/audio/alignment.h"

#include <algorithm>
#include <array>
#include <optional>

namespace sthal::audio {
namespace {

using Frames = std::span<const uint32_t>;

constexpr size_t kWindow = 32;
constexpr size_t kRunFrames = 4;    // A window of which fewer than kMinRuns runs of this length
constexpr size_t kMinRuns = 16;     // are different (silence, say) may lie anywhere.
constexpr size_t kSure = 8;         // So many equal frames in a row are not chance.
constexpr size_t kMaxChanged = 8;   // Pairs kept.
constexpr size_t kMaxSearch = 256;  // Frames looked for at once in a plain search.

size_t Distance(size_t a, size_t b) {
    return a < b ? b - a : a - b;
}

// How many frames are equal from the start on.
size_t EqualRun(Frames a, Frames b) {
    const size_t size = std::min(a.size(), b.size());
    return static_cast<size_t>(
            std::mismatch(a.begin(), a.begin() + static_cast<ptrdiff_t>(size), b.begin()).first -
            a.begin());
}

// A polynomial of some frames, cheap to move a window of kWindow on by one.
class RollingHash {
  public:
    explicit RollingHash(Frames frames) {
        for (const uint32_t frame : frames) value_ = value_ * kBase + frame;
    }
    void Roll(uint32_t out, uint32_t in) { value_ = (value_ - out * kOutFactor) * kBase + in; }
    uint64_t value() const { return value_; }

  private:
    static constexpr uint64_t kBase = 0x9E3779B97F4A7C15;
    static constexpr uint64_t kOutFactor = [] {
        uint64_t factor = 1;
        for (size_t i = 1; i < kWindow; ++i) factor *= kBase;
        return factor;
    }();
    uint64_t value_ = 0;
};

// Every kWindow-th window of a sequence, by its hash. Any 2 * kWindow - 1 frames of it contain one.
class WindowIndex {
  public:
    struct Entry {
        uint64_t hash;
        size_t at;
    };

    explicit WindowIndex(Frames frames) {
        for (size_t at = 0; at + kWindow <= frames.size(); at += kWindow) {
            const Frames window = frames.subspan(at, kWindow);
            if (IsDistinctive(window)) entries_.push_back({RollingHash(window).value(), at});
        }
        std::ranges::stable_sort(entries_, {}, &Entry::hash);
    }

    std::span<const Entry> Find(uint64_t hash) const {
        const auto begin = std::ranges::lower_bound(entries_, hash, {}, &Entry::hash);
        return {begin, std::ranges::upper_bound(begin, entries_.end(), hash, {}, &Entry::hash)};
    }

  private:
    static bool IsDistinctive(Frames window) {
        std::array<uint64_t, kWindow - kRunFrames + 1> runs{};
        for (size_t i = 0; i < runs.size(); ++i) {
            runs[i] = RollingHash(window.subspan(i, kRunFrames)).value();
        }
        std::ranges::sort(runs);
        const auto end = std::unique(runs.begin(), runs.end());
        return static_cast<size_t>(end - runs.begin()) >= kMinRuns;
    }

    std::vector<Entry> entries_;
};

// Goes along the capture once, from its start to its end, knowing where in the microphones' audio
// it is. Where the two part, the nearest place is taken at which they meet again, be it after as
// many frames of the one as of the other or after a jump.
class Follower {
  public:
    Follower(Frames microphones, Frames capture)
        : heard_(microphones), captured_(capture), index_(microphones) {}

    Alignment Follow() {
        if (!FindStart()) return {};
        result_.found = true;
        result_.first_frame = delivered_end_ = at_.heard;
        while (at_.captured < captured_.size()) {
            const size_t run = EqualRun(captured_.subspan(at_.captured), heard_.subspan(at_.heard));
            result_.equal_frames += run;
            Advance(run);
            if (at_.captured < captured_.size()) Resume();
        }
        return std::move(result_);
    }

  private:
    struct Place {
        size_t captured = 0;
        size_t heard = 0;
    };

    bool FindStart() {
        std::optional<Place> meeting = NextMeeting();
        if (!meeting) {
            const auto heard = Search(captured_.first(std::min(captured_.size(), kMaxSearch)), 0);
            if (!heard) return false;
            at_ = {0, *heard};
            return true;
        }
        const size_t before = meeting->captured;
        const bool fits = before <= meeting->heard;
        const size_t unbroken = fits ? meeting->heard - before : 0;
        if (before >= kSure) {
            const auto heard = Search(captured_.first(std::min(before, kWindow)), unbroken);
            if (heard) {
                at_ = {0, *heard};
                return true;
            }
        }
        at_ = {0, unbroken};
        if (!fits) {
            at_.heard = meeting->heard;
            AddForeign(before);
        }
        return true;
    }

    // Gets past the two frames that differ.
    void Resume() {
        const std::optional<Place> meeting = NextMeeting();
        const size_t left = captured_.size() - at_.captured;
        const size_t limit = meeting ? meeting->captured - at_.captured : left;
        if (const auto frames = FramesUntilEqual(limit)) {
            AddChanged(*frames);
        } else if (meeting) {
            JumpTo(*meeting);
        } else {
            FinishLast(left);
        }
    }

    // The next window of the capture that the microphones heard anywhere, moved back towards here
    // as far as the frames before it are equal, too.
    std::optional<Place> NextMeeting() {
        if (!found_ || found_->captured < at_.captured) found_ = ScanForWindow();
        if (!found_) return std::nullopt;
        Place place = *found_;
        while (place.captured > at_.captured && place.heard > 0 &&
               captured_[place.captured - 1] == heard_[place.heard - 1]) {
            --place.captured;
            --place.heard;
        }
        return place;
    }

    std::optional<Place> ScanForWindow() {
        size_t at = at_.captured;
        if (scanned_to_end_ || captured_.size() - at < kWindow) return std::nullopt;
        for (RollingHash hash(captured_.subspan(at, kWindow));; ++at) {
            if (const auto heard = BestCandidate(at, index_.Find(hash.value()))) {
                return Place{at, *heard};
            }
            if (at + kWindow == captured_.size()) break;
            hash.Roll(captured_[at], captured_[at + kWindow]);
        }
        scanned_to_end_ = true;
        return std::nullopt;
    }

    // The candidate from which on most frames are equal; of several the one least far from where
    // the capture would be without any departure.
    std::optional<size_t> BestCandidate(size_t captured,
                                        std::span<const WindowIndex::Entry> candidates) const {
        constexpr size_t kMaxCandidates = 64;
        const size_t expected = at_.heard + (captured - at_.captured);
        std::optional<size_t> best;
        size_t best_run = 0;
        for (const auto& [hash, heard] :
             candidates.first(std::min(candidates.size(), kMaxCandidates))) {
            const size_t run = EqualRun(captured_.subspan(captured), heard_.subspan(heard));
            if (run < kWindow || run < best_run) continue;
            if (best && run == best_run && Distance(heard, expected) >= Distance(*best, expected)) {
                continue;
            }
            best = heard;
            best_run = run;
        }
        return best;
    }

    // After how many frames, at most `limit`, the two go on alike without a jump.
    std::optional<size_t> FramesUntilEqual(size_t limit) const {
        for (size_t skipped = 1; skipped <= limit; ++skipped) {
            const size_t captured = at_.captured + skipped;
            const size_t heard = at_.heard + skipped;
            if (captured >= captured_.size() || heard >= heard_.size()) return std::nullopt;
            const size_t wanted = std::min(kSure, captured_.size() - captured);
            if (EqualRun(captured_.subspan(captured, wanted), heard_.subspan(heard)) == wanted) {
                return skipped;
            }
        }
        return std::nullopt;
    }

    // Where the microphones heard exactly these frames, nearest to `near`.
    std::optional<size_t> Search(Frames wanted, size_t near) const {
        std::optional<size_t> best;
        for (auto from = heard_.begin(); !wanted.empty(); ++from) {
            from = std::search(from, heard_.end(), wanted.begin(), wanted.end());
            if (from == heard_.end()) break;
            const auto at = static_cast<size_t>(from - heard_.begin());
            if (!best || Distance(at, near) < Distance(*best, near)) best = at;
        }
        return best;
    }

    void JumpTo(Place to) {
        const size_t captured = to.captured - at_.captured;
        const size_t left = heard_.size() - at_.heard;
        if (to.heard < at_.heard || captured > left) {
            AddForeign(captured);
        } else if (const size_t heard = to.heard - at_.heard; heard < captured) {
            AddForeign(captured - heard);
            AddChanged(heard);
        } else {
            AddChanged(captured);
        }
        MoveHeardTo(to.heard);
    }

    // What is left of the capture is too short, or too different, for a window.
    void FinishLast(size_t left) {
        if (left >= kSure) {
            if (const auto heard = Search(captured_.subspan(at_.captured), at_.heard)) {
                MoveHeardTo(*heard);
                return;
            }
        }
        if (left < kSure && at_.heard + left <= heard_.size()) {
            AddChanged(left);
        } else {
            AddForeign(left);
        }
    }

    void MoveHeardTo(size_t heard) {
        if (heard > delivered_end_) {
            Add(Departure::Kind::kMissing, delivered_end_, heard - delivered_end_);
            delivered_end_ = heard;
        } else if (heard < at_.heard) {
            Add(Departure::Kind::kDoubled, heard, 0);  // Advance() counts.
        }
        at_.heard = heard;
    }

    void AddChanged(size_t frames) {
        if (frames == 0) return;
        Add(Departure::Kind::kChanged, at_.heard, 0);
        const size_t added = result_.departures.size() - 1;
        for (size_t i = 0; i < frames; ++i) {
            if (captured_[at_.captured] == heard_[at_.heard]) {
                ++result_.equal_frames;
            } else {
                ++result_.departures[added].frames;
                if (result_.changed.size() < kMaxChanged) {
                    result_.changed.push_back({at_.captured, at_.heard});
                }
            }
            Advance(1);
        }
    }

    void AddForeign(size_t frames) {
        if (frames == 0) return;
        Add(Departure::Kind::kForeign, at_.heard, frames);
        at_.captured += frames;
    }

    void Add(Departure::Kind kind, size_t heard, size_t frames) {
        if (kind == Departure::Kind::kDoubled) doubled_ = result_.departures.size();
        result_.departures.push_back({kind, at_.captured, heard, frames});
    }

    // Moves along both sides. What lies before the end of what was delivered comes once more.
    void Advance(size_t frames) {
        if (at_.heard < delivered_end_ && doubled_) {
            result_.departures[*doubled_].frames += std::min(frames, delivered_end_ - at_.heard);
        }
        at_.captured += frames;
        at_.heard += frames;
        delivered_end_ = std::max(delivered_end_, at_.heard);
    }

    const Frames heard_;
    const Frames captured_;
    const WindowIndex index_;

    Alignment result_;
    Place at_;                       // The next frames to be compared.
    size_t delivered_end_ = 0;       // After the last of the microphones' frames delivered so far.
    std::optional<size_t> doubled_;  // Index of the latest departure of that kind.
    std::optional<Place> found_;     // The latest result of ScanForWindow().
    bool scanned_to_end_ = false;
};

}  // namespace

Alignment Align(Frames microphones, Frames capture) {
    return Follower(microphones, capture).Follow();
}

}  // namespace sthal::audio
