#include "cli/FilePreload.h"

#include <algorithm>
#include <utility>

namespace mervasto {

FilePreload::FilePreload(std::vector<std::string> files, WaveImportOptions options)
    : files_(std::move(files)), options_(options) {}

WaveCsvLoadResult FilePreload::load(const std::string& file, DsoSetup& setup, WaveRecord& record) {
    if (direct_ || next_ >= files_.size() || files_[next_] != file) {
        direct_ = true;
        pending_.clear();  // each waits for its job
        return LoadAnyWaveCsv(file, setup, record, options_);
    }
    ++next_;
    if (pending_.empty()) {
        // A new group: the others beside this one.
        const size_t end = std::min(files_.size(), next_ - 1 + std::max(Jobs(), 1u));
        for (size_t i = next_; i < end; ++i)
            pending_.push_back(Submit([this, name = files_[i]] {
                auto loaded = std::make_unique<Loaded>();
                loaded->result = LoadAnyWaveCsv(name, loaded->setup, loaded->record, options_);
                return loaded;
            }));
        return LoadAnyWaveCsv(file, setup, record, options_);
    }
    const std::unique_ptr<Loaded> loaded = pending_.front().get();
    pending_.pop_front();
    if (!loaded->result.ok()) return LoadAnyWaveCsv(file, setup, record, options_);
    setup = std::move(loaded->setup);
    record.wave = std::move(loaded->record.wave);
    return std::move(loaded->result);
}

}  // namespace mervasto
