#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "support/kube_sim/answer.h"
#include "support/kube_sim/request.h"

namespace kube_sim {

/// Compresses a large body for a client that asks for it, as real servers do from 128 KiB on.
Answer compressed_for(const Request& request, Answer answer);

/// The head of @a answer with the empty line at its end. @a close announces the end of the connection.
std::string head_text(const Answer& answer, bool close);

/// The body as it travels, with the framing of chunks where the answer has them. With @a cut_at the text stops behind
/// so many bytes of the body, in mid-framing.
std::string body_text(const Answer& answer, std::optional<size_t> cut_at);

/// One chunk.
std::string chunk(std::string_view bytes);
constexpr std::string_view last_chunk = "0\r\n\r\n";

}  // namespace kube_sim
