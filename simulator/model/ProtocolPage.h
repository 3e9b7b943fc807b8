// The protocol tables as Markdown: the second half of docs/protocol.md.
#pragma once

#include <string>

namespace sim {

std::string ProtocolMarkdown();

}  // namespace sim
