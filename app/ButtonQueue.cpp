#include "app/ButtonQueue.h"

bool ButtonQueue::offer(const ButtonChange& change) {
  if (givenThisFrame || !pending.empty()) {
    pending.push_back(change);
    return false;
  }
  givenThisFrame = true;
  return true;
}

bool ButtonQueue::startFrame(ButtonChange& change) {
  givenThisFrame = false;
  if (pending.empty()) return false;
  change = pending.front();
  pending.pop_front();
  givenThisFrame = true;
  return true;
}
