// SPDX-License-Identifier: Apache-2.0
//
// Note: a message between a test and its peers, bytes and descriptors, over a socket of records.
#pragma once

#include <android-base/unique_fd.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace binderhost::tests {

class Note {
public:
    template <typename T>
    Note& put(const T& value) {
        mBytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
        return *this;
    }
    template <typename Block>
    Note& putBlock(const Block& block) {
        put(uint64_t{block.size()});
        if (block.empty()) return *this;
        mBytes.append(reinterpret_cast<const char*>(block.data()),
                      block.size() * sizeof(*block.data()));
        return *this;
    }
    template <typename T>
    [[nodiscard]] T take() {
        T out{};
        if (mBytes.size() - mTaken < sizeof(out)) throw std::runtime_error("a note is cut");
        std::memcpy(&out, mBytes.data() + mTaken, sizeof(out));
        mTaken += sizeof(out);
        return out;
    }
    template <typename Block>
    [[nodiscard]] Block takeBlock() {
        Block out;
        out.resize(take<uint64_t>());
        const size_t size = out.size() * sizeof(*out.data());
        if (mBytes.size() - mTaken < size) throw std::runtime_error("a note is cut");
        if (size > 0) std::memcpy(out.data(), mBytes.data() + mTaken, size);
        mTaken += size;
        return out;
    }

    /** Descriptors that a received note brought; of a sent one they stay the sender's. */
    std::vector<android::base::unique_fd> received;
    std::vector<int> enclosed;

    /** False when the other side is gone. */
    [[nodiscard]] bool send(int socket) const;
    /** Null bytes and false likewise. Throws after a number of milliseconds, -1 for never. */
    [[nodiscard]] bool receive(int socket, int deadline);

private:
    std::string mBytes;
    size_t mTaken = 0;
};

}  // namespace binderhost::tests
