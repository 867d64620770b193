#include "platform/message.h"

namespace tessaline {

namespace {
MessageHandler g_handler = nullptr;
}

MessageHandler SetMessageHandler(MessageHandler handler) {
  const MessageHandler previous = g_handler;
  g_handler = handler;
  return previous;
}

void ShowMessage(const char* text, const char* title) {
  if (g_handler != nullptr) {
    g_handler(text, title);
  } else {
    ShowPlatformMessage(text, title);
  }
}

}  // namespace tessaline
