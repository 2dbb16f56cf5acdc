#pragma once
// The album mode of the batch job (see output/Album.h).
#include <QString>
#include <vector>

#include "model/Model.h"

namespace velmora {

// Measures each task's track, plans the album at the first task's target and ceiling (every
// task of a batch shares them), and sets each task's target to its track's loudness plus the
// album gain. Fails with the first track that cannot be read, or tooQuiet.
Expected<AlbumPlan> planAlbumTasks(std::vector<MasterTask*> tasks, const ProgressFn& progress);

// The same over a batch's work list: the plan, or the message of why the album could not be
// measured.
std::optional<QString> planAlbumBatch(std::vector<std::pair<QUuid, MasterTask>>& work, std::optional<AlbumPlan>& plan,
                                      const ProgressFn& progress);

// " · album -20.3 LUFS, gain -2.7 dB", and the lowering when there was one: the end of the
// batch summary.
QString albumSummary(const AlbumPlan& plan);

}  // namespace velmora
