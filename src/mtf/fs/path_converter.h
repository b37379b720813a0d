#pragma once

#include <map>
#include <string>

#include "kolt/export.h"
#include "mtf/core/path_converter.h"

namespace MTF_FS {

/// A path in the set to the path where it is to be restored.
typedef std::map<std::string, std::string> path_transform_rules;

/**
 * A converter by rules.
 *
 * A rule covers the path that it names and all below it; the longest one counts, in whole components. What it does not
 * name is kept behind its target, and the whole is put below @a root. A path with a component ".", ".." or none between
 * two separators, or with a NUL, is never restored.
 *
 * @param rules copied
 * @param keep_others a path without a rule: true: goes below @a root as it is; false: is not restored
 * @param next if not empty, has the last word: it converts each result
 * @return empty, with errno, where there is no memory
 */
TESSARIN_API MTF::IPath_Converter_var create_transform_path_converter(const std::string& root,
                                                                      const path_transform_rules& rules,
                                                                      bool keep_others, MTF::IPath_Converter_var next);

}  // namespace MTF_FS
