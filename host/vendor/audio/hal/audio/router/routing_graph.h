#pragma once

#include <string>
#include <vector>

namespace vendor::quarno::brindlecove::audio::hal::audio::router {

/** A connection: the node `source` (a usecase for playback) feeds the node `sink` (a device). */
struct RoutingEdge {
    std::string source;
    std::string sink;

    bool operator==(const RoutingEdge&) const = default;
};

/** All connections that exist at one moment. */
struct RoutingGraph {
    std::vector<RoutingEdge> edges;
};

/** Gets the audio router's reports of what is routed where. */
class RoutingGraphListener {
  public:
    virtual ~RoutingGraphListener() = default;

    /** `graph` is complete: a connection that is not in it is gone. */
    virtual void OnRoutingGraphChanged(const RoutingGraph& graph) = 0;

    /** `edges` has, of each device's connections, those that decide on its settings. */
    virtual void OnHighestPriorityEdgesChanged(const std::vector<RoutingEdge>& edges) = 0;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::audio::router
