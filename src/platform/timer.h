// A periodic timer: the callback runs on a thread of the timer's own, first
// after `dueMs` and then every `periodMs` (0: once), at absolute deadlines on a
// steady clock so that the phase does not drift.
#pragma once

#include <cstdint>

namespace corvane::platform {

struct Timer;
using TimerCallback = void (*)(void* context);

// Returns nullptr on failure.
Timer* CreateTimer(TimerCallback callback, void* context, uint32_t dueMs, uint32_t periodMs);
// Returns once a running callback has ended; no callback starts afterwards.
// Must not be called from the timer's own callback. Null does nothing.
void DeleteTimer(Timer* timer);

}  // namespace corvane::platform
