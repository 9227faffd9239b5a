#include "hosts/linux/media/worker/ChunkedEncoder.h"

#include "hosts/linux/media/worker/Lifeline.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace cadora {

namespace {

constexpr int frameSize = AacEncoder::frameSize;

// One that is being read, and one that waits so that no encoder does.
constexpr int chunksBesideEncoders = 2;

// A chunk's buffer begins prerollFrames early and ends one frame late: the encoder looks that far ahead.
std::int64_t bufferFrames(const EncodingPlan& plan) {
    return std::int64_t{plan.chunkFrames} + plan.prerollFrames + 1;
}

// Cuts the sound into chunks that overlap.
class ChunkCutter {
public:
    ChunkCutter(PcmReader& reader, const EncodingPlan& plan) : reader_(reader), plan_(plan) {}

    bool ended() const { return last_ && last_->end == PcmChunk::End::endsHere; }
    std::int64_t samples() const { return samples_; }

    std::shared_ptr<const PcmChunk> next() {
        auto chunk = std::make_shared<PcmChunk>();
        chunk->channels = reader_.format().channels;
        chunk->capacity = bufferFrames(plan_) * frameSize;
        // Left uninitialised, so that a short sound doesn't occupy the memory of a long one.
        chunk->planes.reset(new float[static_cast<std::size_t>(chunk->channels * chunk->capacity)]);
        const std::int64_t kept = last_ ? std::int64_t{plan_.prerollFrames} + 1 : 0;
        const std::int64_t wanted =
            (last_ ? plan_.chunkFrames : plan_.chunkFrames + 1) * std::int64_t{frameSize};
        std::vector<float*> planes;
        for (int channel = 0; channel < chunk->channels; ++channel) {
            if (last_) {
                const float* end = last_->plane(channel) + last_->samples;
                std::copy(end - kept * frameSize, end, chunk->plane(channel));
            }
            planes.push_back(chunk->plane(channel) + kept * frameSize);
        }
        std::int64_t count = 0;
        for (int got = frameSize; count < wanted && got == frameSize; count += got) {
            got = reader_.read(planes.data(), frameSize);
            std::for_each(planes.begin(), planes.end(), [got](float*& plane) { plane += got; });
        }
        chunk->firstFrame = last_ ? last_->firstFrame + last_->frames() - kept : 0;
        chunk->samples = kept * frameSize + count;
        chunk->end = count < wanted ? PcmChunk::End::endsHere : PcmChunk::End::goesOn;
        samples_ += count;
        last_ = chunk;
        return chunk;
    }

private:
    PcmReader& reader_;
    const EncodingPlan& plan_;
    std::shared_ptr<const PcmChunk> last_;
    std::int64_t samples_ = 0;
};

// A chunk on its way from the reader through an encoder to the writer.
struct Job {
    std::shared_ptr<const PcmChunk> pcm;
    std::unique_ptr<EncodedChunk> encoded;
    std::exception_ptr error;
    enum class State { waiting, encoding, done } state = State::waiting;
};

// Reads ahead on one thread and encodes on others, at most so many chunks at a time.
class Pipeline {
public:
    Pipeline(PcmReader& reader, const EncodingPlan& plan, Crew& crew, int encoders)
        : format_(reader.format()), cutter_(reader, plan), crew_(crew),
          capacity_(static_cast<std::size_t>(encoders + chunksBesideEncoders)) {
        crew_.begin([this, encoders](int member) {
            if (member == 0) {
                readChunks();
            } else if (member <= encoders) {
                encodeChunks();
            }
        });
    }

    ~Pipeline() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        changed_.notify_all();
        crew_.awaitEnd();
    }
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    // The next chunk in order, encoded; none at the end. Makes room for another one to be read.
    std::unique_ptr<Job> next() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] {
            return jobs_.empty() ? reading_ == Reading::ended : jobs_.front()->state == Job::State::done;
        });
        if (jobs_.empty()) {
            if (readError_) {
                std::rethrow_exception(readError_);
            }
            return nullptr;
        }
        std::unique_ptr<Job> job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        changed_.notify_all();
        if (job->error) {
            std::rethrow_exception(job->error);
        }
        return job;
    }

    // Valid once next() has returned none.
    std::int64_t samples() const { return cutter_.samples(); }

private:
    void readChunks() {
        try {
            while (!cutter_.ended()) {
                {
                    std::unique_lock lock(mutex_);
                    changed_.wait(lock, [this] { return stopping_ || jobs_.size() < capacity_; });
                    if (stopping_) {
                        return;
                    }
                }
                auto job = std::make_unique<Job>();
                job->pcm = cutter_.next();
                const std::lock_guard lock(mutex_);
                jobs_.push_back(std::move(job));
                changed_.notify_all();
            }
        } catch (...) {
            readError_ = std::current_exception();
        }
        const std::lock_guard lock(mutex_);
        reading_ = Reading::ended;
        changed_.notify_all();
    }

    Job* waitingJob() const {
        const auto job = std::find_if(jobs_.begin(), jobs_.end(),
                                      [](const auto& each) { return each->state == Job::State::waiting; });
        return job == jobs_.end() ? nullptr : job->get();
    }

    void encodeChunks() {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(
                lock, [this] { return stopping_ || waitingJob() != nullptr || reading_ == Reading::ended; });
            Job* const job = waitingJob();
            if (stopping_ || job == nullptr) {
                return;
            }
            job->state = Job::State::encoding;
            lock.unlock();
            try {
                job->encoded = EncodedChunk::make(format_, *job->pcm);
            } catch (...) {
                job->error = std::current_exception();
            }
            lock.lock();
            job->state = Job::State::done;
            changed_.notify_all();
        }
    }

    PcmFormat format_;
    ChunkCutter cutter_;
    Crew& crew_;
    std::size_t capacity_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // Under the mutex; a job that is being encoded belongs to its encoder.
    std::deque<std::unique_ptr<Job>> jobs_;
    enum class Reading { goesOn, ended } reading_ = Reading::goesOn;
    std::exception_ptr readError_;
    bool stopping_ = false;
};

} // namespace

EncodingPlan EncodingPlan::forSound(std::int64_t frames) {
    constexpr std::int64_t shortestInChunks = 300;
    EncodingPlan plan;
    if (frames < shortestInChunks) {
        plan.chunkFrames = static_cast<int>(frames);
        return plan;
    }
    const std::int64_t pair = std::int64_t{2} * plan.chunkFrames;
    const std::int64_t chunks = 2 * ((frames + pair - 1) / pair);
    plan.chunkFrames = static_cast<int>((frames + chunks - 1) / chunks);
    return plan;
}

int crewForThisMachine() {
    constexpr unsigned mostEncoders = 16;
    return 1 + static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, mostEncoders));
}

std::int64_t encodeInSequence(PcmReader& reader, const PacketSink& sink) {
    AacEncoder encoder(reader.format(), AacCoder::quick);
    const AacEncoder::Sink give = [&](const AVPacket& packet) {
        sink({packet.data, static_cast<std::size_t>(packet.size)});
    };
    std::array<float, std::size_t{2} * frameSize> block;
    const std::array<float*, 2> planes = {block.data(), block.data() + frameSize};
    std::int64_t samples = 0;
    while (const int count = reader.read(planes.data(), frameSize)) {
        encoder.encode(planes.data(), count, give);
        samples += count;
        noteProgress();
    }
    encoder.finish(give);
    return samples;
}

ChunkedEncoder::ChunkedEncoder(PcmReader& reader, const EncodingPlan& plan, Crew& crew)
    : reader_(reader), plan_(plan), crew_(crew) {
    const std::int64_t chunkBytes =
        bufferFrames(plan) * frameSize * reader.format().channels * static_cast<std::int64_t>(sizeof(float));
    const std::int64_t affordable = plan.memory / chunkBytes - chunksBesideEncoders;
    encoders_ = static_cast<int>(std::clamp<std::int64_t>(affordable, 1, std::max(1, crew.members() - 1)));
}

std::int64_t ChunkedEncoder::run(const PacketSink& sink) {
    Pipeline pipeline(reader_, plan_, crew_, encoders_);
    std::unique_ptr<EncodedChunk> current;
    const auto give = [&](std::int64_t end) {
        for (std::int64_t number = current->firstPacket(); number < end; ++number) {
            sink(current->packet(number));
        }
        current->dropUntil(end);
    };
    while (const std::unique_ptr<Job> job = pipeline.next()) {
        if (!current) {
            current = std::move(job->encoded);
            continue;
        }
        // The newest packet of the chunk before is the last one before the nominal seam.
        const std::int64_t nominal = current->endPacket();
        const std::int64_t earliest = job->pcm->firstFrame + plan_.shortestPreroll;
        std::int64_t seam = nominal;
        while (seam >= earliest && !current->joins(*job->encoded, seam)) {
            --seam;
        }
        if (seam >= earliest) {
            give(seam);
            current = std::move(job->encoded);
            current->dropUntil(seam);
        } else {
            give(nominal);
            current->encode(*job->pcm);
        }
    }
    if (current) {
        give(current->endPacket());
    }
    return pipeline.samples();
}

} // namespace cadora
