#pragma once

#include <vector>

#include "http/http_page.h"
#include "websvcs/self_checks.h"

/// The page for people: how the agent is, what runs, and what ended within the last day. HTML without scripts and
/// without anything that has to be fetched; all text from elsewhere is escaped. Threads: any.
HTTP_Content status_page(const std::vector<Self_Checks::Result>& checks);
