#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sthal/script/verbs.h"

namespace sthal {

// Verbs in order, as a file holds them: one a line, `#` begins a comment.
struct Scenario {
    struct Step {
        int line = 0;
        std::string text;  // As it stands in the file.
        Command command;
    };
    std::string name;  // Of the file.
    std::vector<Step> steps;
    // From the file's beginning, if they stand there.
    std::optional<uint32_t> seed;
    std::optional<double> speed;
};

/**
 * Reads a scenario's text. Every line is checked before any is carried out.
 *
 * @param models names of those that are loaded already.
 * @return The scenario, or its first mistake: "NAME:LINE: expected ..., found ...".
 */
audio::Result<Scenario> ParseScenario(std::string_view text, const std::string& name,
                                      std::vector<std::string> models = {});

// The same for a file, which may be one that cannot be read. Looks into the files that its lines
// name, too, and has its texts spoken.
audio::Result<Scenario> ReadScenario(const std::string& path,
                                     const std::vector<std::string>& models = {});

/**
 * Carries a scenario out, one line of the timeline for each step.
 *
 * @return What the first step that failed did, with "NAME:LINE: " before its text; the steps after
 *         it are left. A call of the HAL that fails is a failure unless a line about its result
 *         comes next.
 */
Outcome RunScenario(const Scenario& scenario, Session& session);

}  // namespace sthal
