#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sthal/script/verbs.h"

namespace sthal {

// Verbs in order, as a file holds them: one a line, `#` begins a comment.
struct Scenario {
    struct Line {
        int line = 0;
        std::string text;  // As it stands in the file, with the values that are named put in.
        Command command;
        bool needs_detection = false;  // Left out where `wait detection` got no event.
    };
    std::string name;  // Of the file.
    std::vector<Line> steps;
    // From the file's beginning, if they stand there.
    std::optional<uint32_t> seed;
    std::optional<double> speed;

    // Whether a verb of its own starts the phone, so that it must not be there before.
    bool StartsPhone() const;
};

// What a scenario is read for.
struct ScenarioSetting {
    std::vector<std::string> models{};  // Names of those that are loaded already.
    NamedTexts values{};                // Instead of the scenario's own.
};

/**
 * Reads a scenario's text. Every line is checked before any is carried out.
 *
 * @return The scenario, or its first mistake: "NAME:LINE: expected ..., found ...".
 */
host::Result<Scenario> ParseScenario(std::string_view text, const std::string& name,
                                     const ScenarioSetting& setting = {});

// Looks into the files that a scenario's lines name, and has its texts spoken. The error is its
// first mistake of this kind.
host::Result<void> CheckFiles(const Scenario& scenario);

// Both for a file, which may be one that cannot be read.
host::Result<Scenario> ReadScenario(const std::string& path, const ScenarioSetting& setting = {});

/**
 * Carries a scenario out, one line of the timeline for each step.
 *
 * @return What the first step that was not done did, with its place in the scenario; the steps
 *         after it are left. A call of the HAL that fails is a failure unless a line about its
 *         result comes next. A step that the session's phone lacks a part for fails before the
 *         first one is carried out.
 */
VerbResult RunScenario(const Scenario& scenario, Session& session);

}  // namespace sthal
