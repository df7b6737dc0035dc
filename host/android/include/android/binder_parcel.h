// Host stand-in: the container that parcelables are written to and read from, which nobody can look
// into on a phone either.
#pragma once

struct AParcel;
typedef struct AParcel AParcel;
