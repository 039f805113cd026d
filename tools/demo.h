// demo.h - the steps of `tqbase demo`.
//
// Any tools/cmd_*.cpp may add a step: write a function that prints what it
// shows to stdout and returns false on failure, and register it with
//
//   TQ_REGISTER_DEMO_STEP("50-regions", "Regions on a half-drop repeat", MyStep);
//
// The demo runs the steps in the order of their sort keys, each under its
// title; the registry lives in cmd_basic.cpp. Steps must not write files
// outside the current directory, and should finish within a second.
#ifndef TQBASE_TOOLS_DEMO_H
#define TQBASE_TOOLS_DEMO_H

namespace tqtool {

using DemoStepFn = bool (*)();

struct DemoStepRegistrar {
  DemoStepRegistrar(const char* order, const char* title, DemoStepFn step);
};

}  // namespace tqtool

#define TQ_REGISTER_DEMO_STEP_CAT2(a, b) a##b
#define TQ_REGISTER_DEMO_STEP_CAT(a, b) TQ_REGISTER_DEMO_STEP_CAT2(a, b)
#define TQ_REGISTER_DEMO_STEP(order, title, step) \
  static ::tqtool::DemoStepRegistrar TQ_REGISTER_DEMO_STEP_CAT(s_tqDemoStep_, __LINE__)(order, title, step)

#endif  // TQBASE_TOOLS_DEMO_H
