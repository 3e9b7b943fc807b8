// Does not compile: a format that does not fit its argument or, with NO_LITERAL, any text as the format.
#include "support/Log.h"

void LogWrongly(const char* text) {
#ifdef NO_LITERAL
  LOG(LOG_ERR, text);
#else
  LOG(LOG_ERR, "%s", text[0]);
#endif
}
