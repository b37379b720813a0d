#pragma once

/// Puts what the kernel tells of this process into its metrics, by the names that collectors of metrics expect of every
/// process ("process_resident_memory_bytes" and so on), and the binds that stand below the agent's private directory.
/// Threads: one at a time.
void update_process_metrics();
