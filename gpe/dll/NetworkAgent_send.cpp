// What a network agent sends: queued buffers, the block that opens a stream, the sign of life.

#include "NetworkAgent.h"

#include "Event.h"
#include "PlainLock.h"
#include "ProbeLgKit.h"
#include "ProtocolVisitor.h"
#include "jnihelp.h"

#include <mutex>
#include <new>

namespace {

constexpr size_t INIT_AREA = 2048;
constexpr size_t ALIVE_AREA = 100;

using Area = std::unique_ptr<char[]>;

Area allocateArea(size_t size) {
    return Area(new (std::nothrow) char[size]);
}

int32_t written(ProtocolVisitor &visitor) {
    return static_cast<int32_t>(visitor.getCursor() - visitor.getStart());
}

// The network trace: hands sent buffers to Java.
Relaxed<bool> networkTrace(false);
Relaxed<jclass> traceClass(nullptr);
Relaxed<jmethodID> traceMethod(nullptr);

} // namespace

// The bytes sent or -1; 0 if there was nothing to send, after a pause.
long NetworkAgent::sendNext() {
    if (hungUp()) {
        return -1;
    }
    if (dataQueue_.size() > 0) {
        needAlive_ = false;
        return popSingle_ ? sendFirst() : exactDrops_ ? sendOneByOne() : sendBatch();
    }
    restFor(2 * static_cast<int64_t>(sleepTime_));
    if (!needAlive_) {
        return 0;
    }
    return hungUp() ? -1 : sendAlive();
}

long NetworkAgent::sendFirst() {
    std::unique_ptr<NetworkAgentData> buffer(dataQueue_.removeFirst());
    return sendBuffer(buffer);
}

// A batch whose rest stays in the queue when the connection is lost.
long NetworkAgent::sendOneByOne() {
    long result = sendFirst();
    for (int32_t sent = 1; sent < popSize_ && result != -1 && dataQueue_.size() > 0; ++sent) {
        result = hungUp() ? -1 : sendFirst();
    }
    return result;
}

// Once one send has failed, the rest of the batch is destroyed unsent.
long NetworkAgent::sendBatch() {
    ZykList<NetworkAgentData *> batch(false);
    dataQueue_.cutFirst(popSize_, batch);
    long result = 0;
    for (std::unique_ptr<NetworkAgentData> buffer(batch.removeFirst()); buffer != nullptr;
         buffer.reset(batch.removeFirst())) {
        if (result != -1) {
            result = sendBuffer(buffer);
        } else {
            lossAccount.enter(buffer->figures);
        }
    }
    return result;
}

// Destroys what it sends. A buffer with nothing to send gives 0 and stays the caller's.
long NetworkAgent::sendBuffer(std::unique_ptr<NetworkAgentData> &buffer) {
    if (buffer == nullptr || buffer->getSize() < 1 || buffer->getData() == nullptr) {
        return 0;
    }
    traceBuffer(*buffer);
    const long result = write(buffer->getData(), buffer->getSize(), buffer->figures);
    sentBytes_ += buffer->getSize();
    settle();
    buffer.reset();
    return result;
}

long NetworkAgent::write(const char *ptr, long nbytes, const DropFigures &figures) {
    const long result = sendToRemoteHost(ptr, nbytes);
    if (result == -1) {
        lossAccount.enter(figures);
    } else if (exactDrops_) {
        sent_.add(nbytes, figures, monotonicMicros() / 1000);
    }
    return result;
}

// The initial block is in no queue and in no account.
bool NetworkAgent::sendInitRecords() {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MID, "NetworkAgent::sendInitRecords()");
    const Area area = allocateArea(INIT_AREA);
    if (area == nullptr) {
        traceError("NAID(%d): ERROR: Out of memory, allocation failed in NetworkAgent::sendInitRecords \n",
                   id_);
        traceInfo("ERROR: Out of memory, allocation failed in NetworkAgent::sendInitRecords");
        return false;
    }
    ProtocolVisitor visitor(area.get(), area.get(), area.get() + INIT_AREA, env_);
    visitor.addInitRecord();
    visitor.addJ2EEInitRecord(env_);
    if (write(area.get(), written(visitor)) == -1) {
        if (alive_) {
            traceError("NAID(%d): Failed when sending Init Record to PS.", id_);
            traceInfo("Failed when sending Init Record to PS, NAID: %d", id_);
        }
        return false;
    }
    opened_ = true;
    traceInfo("NAID(%d): Sent Init records successfully to PS.", id_);
    AM_TRACE(naTracer, LGK_DEBUG_MID, "NetworkAgent::sendInitRecords()", "Sent Init records successfully");
    if (!networkAgentHost.get()->setClassDataSent(true)) {
        sendClassEvents();
    }
    return true;
}

// Only for the first connection of the process; later ones are served by the listener.
void NetworkAgent::sendClassEvents() {
    traceInfo("Inside sendInitRecords(): about to send classloading events to PS");
    if (env_ == nullptr) {
        return;
    }
    const LocalRef<jclass> consumer(env_, env_->FindClass(ENTRY_EXIT_CONSUMER_CLASS));
    if (!consumer) {
        traceInfo("Could not find EntryExitConsumerImpl");
        clearException(env_);
        return;
    }
    const jmethodID method = findStaticMethod(env_, consumer.get(), "sendAllClassEvents", "()V");
    if (method != nullptr) {
        env_->CallStaticVoidMethod(consumer.get(), method);
        clearException(env_);
    }
}

long NetworkAgent::sendAlive() {
    const std::unique_ptr<NetworkAgentData> packet = getPSAlivePacket();
    return packet != nullptr ? write(packet->getData(), packet->getSize()) : 0;
}

std::unique_ptr<NetworkAgentData> NetworkAgent::getPSAlivePacket() {
    const Area area = allocateArea(ALIVE_AREA);
    if (area == nullptr) {
        traceError("ERROR: Out of memory, allocation failed in NetworkAgent::getPSAlivePacket");
        return nullptr;
    }
    ProtocolVisitor visitor(area.get(), area.get(), area.get() + ALIVE_AREA, env_);
    visitor.addPacketHeaderRecord(1);
    PSStatusEvent status;
    status.addToBuffer(&visitor);
    std::unique_ptr<NetworkAgentData> packet = NetworkAgentData::copyOf(area.get(), written(visitor));
    if (packet != nullptr) {
        needAlive_ = false;
    }
    return packet;
}

void NetworkAgent::traceBuffer(const NetworkAgentData &buffer) const {
    const jclass target = traceClass;
    const jmethodID method = traceMethod;
    if (!networkTrace || env_ == nullptr || target == nullptr || method == nullptr) {
        return;
    }
    if (env_->PushLocalFrame(1) != JNI_OK) {
        clearException(env_);
        return;
    }
    const jsize size = buffer.getSize();
    jbyteArray bytes = env_->NewByteArray(size);
    if (bytes != nullptr) {
        env_->SetByteArrayRegion(bytes, 0, size, reinterpret_cast<const jbyte *>(buffer.getData()));
        env_->CallStaticVoidMethod(target, method, bytes);
    }
    clearException(env_);
    env_->PopLocalFrame(nullptr);
}

void NetworkAgent::setNetworkTrace(JNIEnv *env, jclass owner, bool on) {
    networkTrace = on;
    static PlainLock lookUpLock;
    const std::lock_guard<PlainLock> guard(lookUpLock);
    if (traceClass == nullptr) {
        traceClass = static_cast<jclass>(env->NewGlobalRef(owner));
        traceMethod = findStaticMethod(env, traceClass, "writeTraceEntry", "([B)V");
    }
}
