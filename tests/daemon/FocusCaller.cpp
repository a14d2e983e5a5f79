// SPDX-License-Identifier: Apache-2.0
//
// Focus caller.
#include "FocusCaller.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <binder/IBinder.h>
#include <fcntl.h>

#include <cstring>
#include <stdexcept>

namespace daemontest {

using android::IBinder;
using android::base::unique_fd;
using binderhost::tests::Commands;
using binderhost::tests::Return;

namespace {

constexpr uint32_t kCheckService = 2;

int32_t int32At(const std::string& bytes, size_t position) {
    int32_t value = 0;
    if (bytes.size() < position + sizeof(value))
        throw std::runtime_error("the answer is too short");
    std::memcpy(&value, bytes.data() + position, sizeof(value));
    return value;
}

Answer answerOf(const std::string& bytes, bool isStatus) {
    if (isStatus) return failed(int32At(bytes, 0));
    // A reply without contents is that of a call every binder knows.
    if (bytes.empty()) return {};
    return {.status = 0, .exception = int32At(bytes, 0), .result = bytes.substr(4)};
}

}  // namespace

Answer failed(int32_t status) {
    return {.status = status, .exception = 0, .result = ""};
}

bool isRefused(const Answer& answer, int32_t exception) {
    return answer.status == 0 && answer.exception == exception;
}

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
    if (answer.status != 0) return out << "status " << answer.status;
    return out << "exception " << answer.exception << " and " << answer.result.size() << " bytes";
}

FocusCaller::FocusCaller(const std::string& hubPath) : mClient(hubPath) {
    FocusRequest lookup(u"android.os.IServiceManager");
    mClient.write(
            Commands().call(/*handle=*/0, kCheckService, lookup.string16(u"vrfocus").payload()));
    const Return reply = mClient.expectReply();
    if (reply.data().offsets_size != sizeof(binder_size_t)) {
        throw std::runtime_error("there is no vrfocus");
    }
    mHandle = reply.object(0).handle;
    mClient.write(
            Commands().count(BC_INCREFS, mHandle).count(BC_ACQUIRE, mHandle).freeBuffer(reply));
}

void FocusCaller::begin(uint32_t code, const Payload& request) {
    mClient.write(Commands().call(mHandle, code, request));
}

Answer FocusCaller::finish() {
    for (;;) {
        const Return event = mClient.nextEvent();
        if (event.command == BR_DEAD_REPLY) return failed(android::DEAD_OBJECT);
        if (event.command == BR_FAILED_REPLY) return failed(android::FAILED_TRANSACTION);
        if (event.command != BR_REPLY) continue;
        const std::string bytes = event.text();
        mClient.write(Commands().freeBuffer(event));
        return answerOf(bytes, (event.data().flags & TF_STATUS_CODE) != 0);
    }
}

Answer FocusCaller::call(uint32_t code, const Payload& request) {
    begin(code, request);
    return finish();
}

void FocusCaller::post(uint32_t code, const FocusRequest& request) {
    mClient.write(Commands().oneway(mHandle, code, request.payload()));
    (void)mClient.expect(BR_TRANSACTION_COMPLETE);
}

FocusRequest FocusCaller::dumpRequest(int fd, const std::vector<std::u16string>& arguments) {
    FocusRequest request = FocusRequest::bare();
    request.descriptor(fd).int32(static_cast<int32_t>(arguments.size()));
    for (const std::u16string& argument : arguments)
        request.string16(argument);
    return request;
}

std::string FocusCaller::dump(const std::vector<std::u16string>& arguments) {
    unique_fd readEnd;
    unique_fd writeEnd;
    if (!android::base::Pipe(&readEnd, &writeEnd, O_CLOEXEC)) throw std::runtime_error("no pipe");
    begin(IBinder::DUMP_TRANSACTION, dumpRequest(writeEnd.get(), arguments).payload());
    writeEnd.reset();
    std::string text;
    if (!android::base::ReadFdToString(readEnd, &text)) throw std::runtime_error("unreadable dump");
    const Answer answer = finish();
    if (answer != Answer()) throw std::runtime_error("dump: " + std::to_string(answer.status));
    return text;
}

int32_t FocusCaller::servicePid() {
    return call(IBinder::DEBUG_PID_TRANSACTION, Payload()).exception;
}

bool FocusCaller::isAnswered() {
    const Answer answer = call(kGetClientFocusStatus, FocusRequest().int32(0).int32Vector({}));
    return answer.status == 0 && answer.exception == 0 && int32At(answer.result, 0) == 0;
}

}  // namespace daemontest
