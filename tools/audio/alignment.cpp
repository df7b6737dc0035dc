#include "tools/audio/alignment.h"

#include <algorithm>
#include <array>
#include <optional>

namespace sthal::audio {
namespace {

using Frames = std::span<const uint32_t>;

constexpr size_t kWindow = 32;
constexpr size_t kSure = 8;         // So many equal frames in a row are not chance.
constexpr size_t kMaxChanged = 8;   // Frames kept.
constexpr size_t kMaxSearch = 256;  // Frames looked for at once in a plain search.

size_t Distance(size_t a, size_t b) {
    return a < b ? b - a : a - b;
}

// How many frames are equal from the start on.
size_t EqualRun(Frames a, Frames b) {
    return static_cast<size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

// Every kWindow-th window of a sequence, sorted. Any 2 * kWindow - 1 frames of it contain one.
class WindowIndex {
  public:
    explicit WindowIndex(Frames frames) : frames_(frames) {
        for (size_t at = 0; at + kWindow <= frames.size(); at += kWindow) {
            if (IsDistinctive(frames.subspan(at, kWindow))) starts_.push_back(at);
        }
        std::ranges::stable_sort(starts_, IsLess, WindowAt{frames});
    }

    // Where the windows begin that are equal to this one.
    std::span<const size_t> Find(Frames window) const {
        const WindowAt window_at{frames_};
        const auto first = std::ranges::lower_bound(starts_, window, IsLess, window_at);
        auto last = first;
        while (last != starts_.end() && std::ranges::equal(window_at(*last), window)) ++last;
        return {first, last};
    }

  private:
    struct WindowAt {
        Frames frames;
        Frames operator()(size_t at) const { return frames.subspan(at, kWindow); }
    };

    // A window of few different runs (silence, say) may lie anywhere.
    static bool IsDistinctive(Frames window) {
        constexpr size_t kRun = 4;
        constexpr ptrdiff_t kMinRuns = 16;
        std::array<std::array<uint32_t, kRun>, kWindow - kRun + 1> runs{};
        for (size_t i = 0; i < runs.size(); ++i) {
            std::ranges::copy(window.subspan(i, kRun), runs[i].begin());
        }
        std::ranges::sort(runs);
        return std::unique(runs.begin(), runs.end()) - runs.begin() >= kMinRuns;
    }

    static bool IsLess(Frames a, Frames b) { return std::ranges::lexicographical_compare(a, b); }

    const Frames frames_;
    std::vector<size_t> starts_;
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
        const std::optional<Place> meeting = NextMeeting();
        const size_t before = meeting ? meeting->captured : captured_.size();
        const size_t expected = meeting && meeting->heard > before ? meeting->heard - before : 0;
        const size_t most = !meeting ? kMaxSearch : before >= kSure ? kWindow : 0;
        const auto heard = Search(captured_.first(std::min(before, most)), expected);
        if (!meeting && !heard) return false;
        at_.heard = heard.value_or(expected);
        if (!heard && before > meeting->heard) {
            at_.heard = meeting->heard;
            AddInserted(before);
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
            const bool is_ahead = meeting->heard > at_.heard;
            const size_t changed = is_ahead ? std::min(limit, meeting->heard - at_.heard) : 0;
            AddInserted(limit - changed);
            AddChanged(changed);
            MoveHeardTo(meeting->heard);
        } else {
            FinishLast(left);
        }
    }

    // The next window of the capture that the microphones heard anywhere, moved back towards here
    // as far as the frames before it are equal, too.
    std::optional<Place> NextMeeting() {
        if (!found_ || found_->captured < at_.captured) found_ = ScanForWindow();
        if (found_->captured == captured_.size()) return std::nullopt;
        Place place = *found_;
        while (place.captured > at_.captured && place.heard > 0 &&
               captured_[place.captured - 1] == heard_[place.heard - 1]) {
            --place.captured;
            --place.heard;
        }
        return place;
    }

    // At the capture's end when there is none.
    Place ScanForWindow() const {
        for (size_t at = at_.captured; at + kWindow <= captured_.size(); ++at) {
            const auto candidates = index_.Find(captured_.subspan(at, kWindow));
            if (!candidates.empty()) return {at, BestCandidate(at, candidates)};
        }
        return {captured_.size(), heard_.size()};
    }

    // The candidate from which on most frames are equal; of several the one least far from where
    // the capture would be without any mismatch.
    size_t BestCandidate(size_t captured, std::span<const size_t> candidates) const {
        constexpr size_t kMaxCandidates = 64;
        const size_t expected = at_.heard + (captured - at_.captured);
        const auto rank = [&](size_t heard) {
            return std::pair(EqualRun(captured_.subspan(captured), heard_.subspan(heard)),
                             SIZE_MAX - Distance(heard, expected));
        };
        candidates = candidates.first(std::min(candidates.size(), kMaxCandidates));
        return *std::ranges::max_element(candidates, {}, rank);
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

    // What is left of the capture is too short, or too different, for a window.
    void FinishLast(size_t left) {
        const Frames wanted = left >= kSure ? captured_.last(left) : Frames();
        if (const auto heard = Search(wanted, at_.heard)) {
            MoveHeardTo(*heard);
        } else if (left < kSure && at_.heard + left <= heard_.size()) {
            AddChanged(left);
        } else {
            AddInserted(left);
        }
    }

    void MoveHeardTo(size_t heard) {
        if (heard > delivered_end_) {
            Add(Mismatch::Kind::kMissing, delivered_end_, heard - delivered_end_);
            delivered_end_ = heard;
        } else if (heard < at_.heard) {
            duplicated_ = result_.mismatches.size();
            Add(Mismatch::Kind::kDuplicated, heard, 0);  // Advance() counts.
        }
        at_.heard = heard;
    }

    void AddChanged(size_t frames) {
        if (frames == 0) return;
        Add(Mismatch::Kind::kChanged, at_.heard, 0);
        const size_t added = result_.mismatches.size() - 1;
        for (size_t i = 0; i < frames; ++i, Advance(1)) {
            const uint32_t expected = heard_[at_.heard];
            const uint32_t got = captured_[at_.captured];
            if (got == expected) {
                ++result_.equal_frames;
                continue;
            }
            ++result_.mismatches[added].frames;
            if (result_.changed.size() < kMaxChanged) {
                result_.changed.push_back({at_.captured, at_.heard, expected, got});
            }
        }
    }

    void AddInserted(size_t frames) {
        if (frames == 0) return;
        Add(Mismatch::Kind::kInserted, at_.heard, frames);
        at_.captured += frames;
    }

    void Add(Mismatch::Kind kind, size_t heard, size_t frames) {
        result_.mismatches.push_back({kind, at_.captured, heard, frames});
    }

    // Moves along both sides. What lies before the end of what was delivered comes once more.
    void Advance(size_t frames) {
        if (at_.heard < delivered_end_ && duplicated_) {
            result_.mismatches[*duplicated_].frames += std::min(frames, delivered_end_ - at_.heard);
        }
        at_.captured += frames;
        at_.heard += frames;
        delivered_end_ = std::max(delivered_end_, at_.heard);
    }

    const Frames heard_;
    const Frames captured_;
    const WindowIndex index_;

    Alignment result_;
    Place at_;                          // The next frames to be compared.
    size_t delivered_end_ = 0;          // After the last of the microphones' frames delivered.
    std::optional<size_t> duplicated_;  // Index of the latest mismatch of that kind.
    std::optional<Place> found_;        // The latest result of ScanForWindow().
};

}  // namespace

Alignment Align(Frames microphones, Frames capture) {
    return Follower(microphones, capture).Follow();
}

}  // namespace sthal::audio
