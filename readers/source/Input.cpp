// SPDX-License-Identifier: Apache-2.0
#include "readers/source/Input.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "readers/apart/ApartSource.hpp"
#include "readers/raster/companions.hpp"

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <list>
#include <utility>

namespace Tidewatch {

/// All inputs of the process: the identities of their files, and which of them are open.
class OpenInputs {
public:
    static OpenInputs& all() {
        // Never destroyed: static objects of a host may hold inputs until the process ends.
        static auto* const inputs = new OpenInputs;
        return *inputs;
    }

    void add(const Input& input) {
        const std::lock_guard lock(mutex_);
        identities_.push_back(input.states_.front().second.identity);
    }

    void remove(Input& input) {
        std::unique_ptr<Input::Live> live;
        const std::lock_guard lock(mutex_);
        const auto known =
            std::find(identities_.begin(), identities_.end(), input.states_.front().second.identity);
        identities_.erase(known);
        recent_.remove(&input);
        live = std::move(input.live_);
        changed_.notify_all();
    }

    bool has(const Anchor::FileIdentity& identity) {
        const std::lock_guard lock(mutex_);
        return std::find(identities_.begin(), identities_.end(), identity) != identities_.end();
    }

    /// Waits until no other thread uses the input and it may be opened; returns its open files, null if it is
    /// closed.
    std::unique_ptr<Input::Live> borrow(Input& input) {
        std::unique_ptr<Input::Live> dropped;
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return !input.isBusy_; });
        input.isBusy_ = true;
        if (input.live_) {
            takeOut(input);
            ++inUse_;
            return std::move(input.live_);
        }
        changed_.wait(lock, [&] { return inUse_ < Input::mostOpen; });
        if (inUse_ + recent_.size() >= Input::mostOpen) {
            Input& oldest = *recent_.front();
            dropped = std::move(oldest.live_);
            takeOut(oldest);
        }
        ++inUse_;
        lock.unlock();
        return nullptr;
    }

    /// Ends a borrow(); pass null for `live` to close the files. Needs no memory, since it is called while an exception
    /// passes through.
    void giveBack(Input& input, std::unique_ptr<Input::Live> live) noexcept {
        const std::lock_guard lock(mutex_);
        input.isBusy_ = false;
        --inUse_;
        if (live) {
            input.live_ = std::move(live);
            recent_.splice(recent_.end(), input.place_);
        }
        changed_.notify_all();
    }

private:
    void takeOut(Input& input) {
        const auto place = std::find(recent_.begin(), recent_.end(), &input);
        input.place_.splice(input.place_.begin(), recent_, place);
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Anchor::FileIdentity> identities_;
    /// Open inputs not in use, the least recently used first.
    std::list<Input*> recent_;
    std::size_t inUse_ = 0;
};

namespace {

/// The module for reading in this process.
const SourceModule& moduleHere(ModuleKind kind) {
    const std::string folder = Places::moduleFolder();
    return loadModule(kind, folder);
}

} // namespace

Input::Input(std::string path, ConvLib::ReadOptions options, ModuleKind kind, Reading reading)
    : path_(std::move(path)),
      options_(std::move(options)),
      kind_(kind),
      reading_(reading) {
    place_.push_back(this);
    states_.emplace_back(path_, InputFile(path_).state());
    OpenInputs::all().add(*this);
}

Input::~Input() {
    OpenInputs::all().remove(*this);
}

bool Input::isInput(const std::string& path) {
    const auto identity = Anchor::FileIdentity::of(path);
    return identity && OpenInputs::all().has(*identity);
}

bool Input::isAsItWas() const {
    const auto state = Anchor::FileState::of(path_);
    return state && *state == states_.front().second;
}

void Input::openFiles(Live& live) {
    const bool isFirst = states_.size() == 1;
    const auto add = [&](const std::string& path) {
        InputFile file(path);
        live.files.files.push_back(
            {std::filesystem::path(path).filename().string(), file.descriptor(), file.size()});
        live.opened.push_back(std::move(file));
    };
    add(path_);
    if (kind_ == ModuleKind::Rasters && isFirst) {
        for (const std::string& name : Raster::companionsOf(path_)) {
            const std::string beside = std::filesystem::path(path_).replace_filename(name).string();
            try {
                add(beside);
                states_.emplace_back(beside, live.opened.back().state());
            } catch (const Anchor::FileError&) {
                // A file that cannot be opened is treated as missing.
            }
        }
    } else if (!isFirst) {
        for (std::size_t i = 1; i < states_.size(); ++i)
            add(states_[i].first);
    }
    live.files.path = path_;
    requireUnchanged(live);
}

void Input::requireUnchanged(const Live& live) const {
    for (std::size_t i = 0; i < live.opened.size(); ++i)
        live.opened[i].requireUnchanged(states_[i].second);
}

void Input::open(Live& live) {
    openFiles(live);
    if (reading_ == Reading::Apart) {
        live.source = std::make_unique<ApartSource>(kind_, live.files, options_.MaximumArrayBytes);
        return;
    }
    const SourceModule& module = moduleHere(kind_);
    live.source = module.open(live.files);
}

/// Lends the open input to one call.
template <class Call>
auto Input::withSource(Call&& call) {
    struct Loan {
        explicit Loan(Input& borrower) : input(borrower), live(OpenInputs::all().borrow(borrower)) {}
        ~Loan() {
            if (live && (!live->source || !live->source->isUsable()))
                live.reset();
            OpenInputs::all().giveBack(input, std::move(live));
        }
        Loan(const Loan&) = delete;
        Loan& operator=(const Loan&) = delete;

        Input& input;
        std::unique_ptr<Live> live;
    } loan(*this);
    // A forked process cannot use what its parent had open.
    if (loan.live && !loan.live->source->isUsable())
        loan.live.reset();
    if (!loan.live) {
        loan.live = std::make_unique<Live>();
        open(*loan.live);
    }
    // Companion files are found by the raster's path, so replacing the file at the path counts as a change.
    if (kind_ == ModuleKind::Rasters && !isAsItWas())
        throw Anchor::FileError(Anchor::printable(path_) + ": has been changed since it was opened");
    requireUnchanged(*loan.live);
    return call(*loan.live);
}

bool Input::isRecognised() {
    if (reading_ == Reading::Apart) {
        return withSource([](Live& live) { return static_cast<ApartSource&>(*live.source).isRecognised(); });
    }
    Live live;
    openFiles(live);
    const SourceModule& module = moduleHere(kind_);
    return module.recognises(live.files);
}

Structure Input::structure() {
    return withSource([this](Live& live) {
        Structure structure = live.source->structure([this](double share) { tick(share); });
        requireUnchanged(live);
        const std::lock_guard lock(remarksMutex_);
        notCarried_ = structure.notCarried;
        return structure;
    });
}

void Input::read(const Structure::Array& array, ArrayMemory& target) {
    withSource([&](Live& live) {
        const auto found = live.source->read(array, target, options_.MaximumArrayBytes,
                                             [this](double share) { tick(share); });
        requireUnchanged(live);
        const std::lock_guard lock(remarksMutex_);
        for (const std::string& remark : found) {
            if (std::find(lostByCellTypes_.begin(), lostByCellTypes_.end(), remark) == lostByCellTypes_.end())
                lostByCellTypes_.push_back(remark);
        }
    });
}

std::vector<std::string> Input::notCarried() const {
    const std::lock_guard lock(remarksMutex_);
    return notCarried_;
}

std::vector<std::string> Input::lostByCellTypes() const {
    const std::lock_guard lock(remarksMutex_);
    return lostByCellTypes_;
}

} // namespace Tidewatch
