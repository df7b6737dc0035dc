#pragma once

// The library hides everything but what is marked so.
#define SOUND_TRIGGER_EXPORT __attribute__((visibility("default")))
