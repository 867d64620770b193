// The filter without questions: its entry point. The acceptance is found from the picture, what is found is
// taken out, and no window opens. Beside the filter of glue/host/plugin_main.h it is a module of its own.
#pragma once

#include <cstdint>

// Answers as PluginMain does (glue/host/plugin_main.h), and is exported under that name. Its start selector
// fetches the work rectangle, cleans it as `tessaline -a auto` does, and writes it back.
//
// What was cleaned goes back in the planes that it came in, Lab too; alpha and spot channels stay as they
// are. Untouched or finished: cancelling counts until the first row goes back.
//
// Nothing is played and nothing kept. Recorded is a descriptor without values, with "no dialog".
//
// The start selector returns 0; kUserCancelled; kOutOfMemory; the code of a host that fails to deliver or to
// take the picture; or, where nothing was done, kReportString with the reason in the host's error string. A
// host without one has the user told in a message box instead, and kUserCancelled. Reasons are: planes that
// no run takes, among them those of 32 bits; more pixels than a buffer holds; and nothing found, or nothing
// selected. For the last two the answer is 0, and silence, where the host plays an action that is to show
// nothing to anybody.
extern "C" intptr_t AutomaticMain(int16_t selector, void* parameterBlock, intptr_t* data, int16_t* result);
