// Must not compile: the format does not match its argument or, with NO_LITERAL, is not a literal.
#include "support/Log.h"

void LogWrongly(const char* text) {
#ifdef NO_LITERAL
  LOG(LOG_ERR, text);
#else
  LOG(LOG_ERR, "%s", text[0]);
#endif
}
