#pragma once

#include <string>
#include <string_view>

#include "gate/daemon/DaemonDesk.h"
#include "gate/http/HttpExchange.h"

/// The status that stands for an error's code: 400 for what is asked wrongly, 403 for what may not
/// be asked, 404 for what is not there, 503 for what can't be had now.
[[nodiscard]] unsigned StatusOfCode(std::string_view code);

/// An error as the interface answers it: {"ok":false,"error":{"code","message","field"}}, an empty
/// field left out.
[[nodiscard]] HttpAnswer ErrorAnswer(unsigned status, std::string_view code,
                                     const std::string& message, const std::string& field = "");

/// The error of a question that has ended without an answer.
[[nodiscard]] HttpAnswer ErrorAnswer(DaemonDesk::End end);
