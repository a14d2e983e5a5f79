// SPDX-License-Identifier: Apache-2.0
//
// Hosted process: a main() as services have it, around an object whose dump is longer than a pipe.
#include <binder/Binder.h>
#include <osutils/ServiceHost.h>
#include <unistd.h>

#include <string>

namespace {

class Talkative : public android::BBinder {
public:
    android::status_t dump(int fd, const android::Vector<android::String16>& /*args*/) override {
        const std::string text(1 << 20, 'x');
        for (size_t written = 0; written < text.size();) {
            const ssize_t count = write(fd, text.data() + written, text.size() - written);
            // Not the error number: that of a closed pipe is DEAD_OBJECT's.
            if (count < 0) return android::UNKNOWN_ERROR;
            written += static_cast<size_t>(count);
        }
        return android::OK;
    }
};

}  // namespace

int main() {
    const android::sp<android::IBinder> service = new Talkative;
    NQS::OS::ServiceHost host({{"hosted", service}});
    host.startThreadPool();
    return 0;
}
