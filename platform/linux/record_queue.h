// The queues between processes, beyond what mdx_platform.h says.
#pragma once

/// Makes queues again that somebody has removed, and the link to the task that serves queue 2. The
/// ids that were handed out stay good. That task is woken when requests lie there: who put them may
/// have died before its raise. Any thread.
void record_queues_restore();
