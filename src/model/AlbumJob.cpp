// Album mode of the batch: measures every track once more to gate the album as one programme,
// then gives each task the loudness its track is brought to.
#include "model/AlbumJob.h"

#include "audio/AudioFileReader.h"
#include "audio/NumberFormat.h"

namespace velmora {

void Model::setAlbum(bool v) { assign(album_, v, &Model::albumChanged); }

Expected<AlbumPlan> planAlbumTasks(std::vector<MasterTask*> tasks, const ProgressFn& progress) {
    std::vector<AlbumTrack> tracks;
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        const MasterTask& t = *tasks[i];
        const auto source = programmeFor(t.sourcePath, isVideoPath(t.sourcePath), t.channelCount, t.frames, t.sampleRate);
        auto track = measureAlbumTrack(*source, t.weights, [&](double f) {
            if (progress) progress((double(i) + f) / double(tasks.size()));
        });
        if (!track) return track.error();
        tracks.push_back(std::move(*track));
    }
    if (tasks.empty()) return AlbumPlan{};
    auto plan = planAlbum(tracks, tasks.front()->target, tasks.front()->ceiling);
    if (!plan) return plan.error();
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        tasks[i]->target = plan->trackTargets[i];
        tasks[i]->album = ReportInputs::Album{plan->albumLUFS, plan->gainDB, plan->loweredDB};
    }
    return plan;
}

std::optional<QString> planAlbumBatch(std::vector<std::pair<QUuid, MasterTask>>& work, std::optional<AlbumPlan>& plan,
                                      const ProgressFn& progress) {
    std::vector<MasterTask*> tasks;
    for (auto& entry : work) tasks.push_back(&entry.second);
    auto planned = planAlbumTasks(tasks, progress);
    if (!planned) return QString::fromStdString(planned.error().message());
    plan = std::move(*planned);
    return std::nullopt;
}

QString albumSummary(const AlbumPlan& plan) {
    QString text = QStringLiteral(" · album %1 LUFS, gain %2 dB")
                       .arg(QString::fromStdString(formatOneDecimal(plan.albumLUFS)),
                            QString::fromStdString(formatSignedOneDecimal(plan.gainDB)));
    if (plan.loweredDB > 0)
        text += QStringLiteral(" · gain d'album abaissé de %1 dB : une piste aurait demandé plus de 12 dB de limitation")
                    .arg(QString::fromStdString(formatOneDecimal(plan.loweredDB)));
    return text;
}

}  // namespace velmora
