#pragma once
// The flash screen's process-wide variables, kept apart from the screen object so
// that they survive mode changes.
#include "device/FlashSequencer.h"

extern FlushState flushState;
