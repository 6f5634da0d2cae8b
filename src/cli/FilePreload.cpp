#include "cli/FilePreload.h"

#include <utility>

namespace mervasto {

FilePreload::FilePreload(std::vector<std::string> files, const DsoSetup& setup, const WaveRecord& record,
                         const WaveFieldTable& table, WaveImportOptions options)
    : files_(std::move(files)), options_(options), setup_(setup), table_(table) {
    record_.wave = record.wave;
    startNext();
}

FilePreload::~FilePreload() {
    if (pending_.valid()) pending_.wait();
}

void FilePreload::startNext() {
    if (next_ >= files_.size()) return;
    // Only one load at a time touches the chain: the next starts once this
    // one's copy has been taken.
    pending_ = std::async(std::launch::async, [this, file = files_[next_]] {
        auto loaded = std::make_unique<Loaded>();
        loaded->result = LoadAnyWaveCsv(file, setup_, record_, table_, options_);
        loaded->setup = setup_;
        loaded->wave = record_.wave;
        loaded->table = table_;
        return loaded;
    });
}

WaveCsvLoadResult FilePreload::load(const std::string& file, DsoSetup& setup, WaveRecord& record,
                                    WaveFieldTable& table) {
    if (!direct_ && pending_.valid() && next_ < files_.size() && files_[next_] == file) {
        std::unique_ptr<Loaded> loaded = pending_.get();
        ++next_;
        startNext();
        setup = std::move(loaded->setup);
        record.wave = std::move(loaded->wave);
        table = std::move(loaded->table);
        return std::move(loaded->result);
    }
    // Out of order: what the run state holds is the true chain; the load in
    // flight, if any, is dropped.
    if (pending_.valid()) pending_.wait();
    pending_ = {};
    direct_ = true;
    return LoadAnyWaveCsv(file, setup, record, table, options_);
}

}  // namespace mervasto
