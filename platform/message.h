// Diagnostics for a person: a message box on Windows, a line on stderr elsewhere.
#pragma once

namespace tessaline {

// Shows `text` under `title` and returns when it was dismissed. On Windows a MessageBoxA with no owner and
// style 0x40030 (exclamation icon, top-most); on POSIX "title: text" on stderr, line breaks kept.
void ShowMessage(const char* text, const char* title);

// Sends messages to `handler` instead; null restores the platform's own way. For programs that report in a
// way of their own, and for tests. Returns the handler that was in force.
using MessageHandler = void (*)(const char* text, const char* title);
MessageHandler SetMessageHandler(MessageHandler handler);

// The platform's own way, whatever handler is set.
void ShowPlatformMessage(const char* text, const char* title);

}  // namespace tessaline
