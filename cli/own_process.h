// Work in a process of its own: what a damaged file or want of memory makes of a library ends that process,
// and this one tells what became of it.
#pragma once

#include <functional>
#include <string>

#include "cli/refusal.h"

namespace tessaline::cli {

// The work's status, or kInterrupted. Where its process ends otherwise, refuses as EndedSilently has it.
// Where no process is to be had the work is done in this one.
ExitStatus RunApart(const std::string& input, const std::function<ExitStatus()>& work);

// Why a process ended that had not told what became of its picture; `waitStatus` as waitpid gives it.
Refusal EndedSilently(const std::string& input, int waitStatus);

// Of a process at work on a picture, right after fork: it ends when the parent does.
void BecomeWorker(int parent);

}  // namespace tessaline::cli
