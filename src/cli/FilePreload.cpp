#include "cli/FilePreload.h"

#include "common/TextFile.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <system_error>
#include <utility>

namespace mervasto {

namespace {

// A group's files, on disk, at most: their records all stay in memory until
// their turn (a 5,000,000-row file is some 150 MB and 80 MB of samples).
constexpr uint64_t kGroupBytes = uint64_t{1} << 30;

uint64_t fileBytes(const std::string& file) {
    std::error_code ec;
    const auto size = std::filesystem::file_size(PathFromText(file), ec);
    return ec ? 0 : static_cast<uint64_t>(size);
}

}  // namespace

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
        // A new group: the others beside this one, as many as the cap allows
        // and the memory bound (at least one).
        const size_t cap = next_ - 1 + std::max(Jobs(), 1u);
        uint64_t bytes = fileBytes(file);
        size_t end = next_;
        for (; end < files_.size() && end < cap; ++end) {
            bytes += fileBytes(files_[end]);
            if (end > next_ && bytes > kGroupBytes) break;
        }
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
