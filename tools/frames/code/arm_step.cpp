#include "frames/code/step.h"
namespace quarl::frames {
Step step_arm(const CodeAt&, StackState&) {
  return {};
}
Step step_thumb(const CodeAt&, StackState&) {
  return {};
}
}  // namespace quarl::frames
