// Natives that hand a static field of a server class to Java code which may not name its type.
#include "jnihelp.h"

namespace {

// The field's value as a new local reference; null for a null class or a field that does not exist.
jobject staticObject(JNIEnv *env, jclass cls, const char *field, const char *signature) {
    if (cls == nullptr) {
        return nullptr;
    }
    const jfieldID id = env->GetStaticFieldID(cls, field, signature);
    if (clearException(env)) {
        return nullptr;
    }
    return env->GetStaticObjectField(cls, id);
}

} // namespace

extern "C" {

// The server's property table, field `_props` of `brsSystem`.
JNIEXPORT jobject JNICALL Java_com_zykora_br40_ProbeService_getSystemProperties(JNIEnv *env, jclass,
                                                                                jclass brsSystem) {
    return staticObject(env, brsSystem, "_props", "Lcom/qel/servlet/util/ExProperties;");
}

// The server's data sources, field `dataSources` of `dataSourceFactory`.
JNIEXPORT jobject JNICALL Java_com_zykora_br40_BRSServer_getDataSources(JNIEnv *env, jclass,
                                                                        jclass dataSourceFactory) {
    return staticObject(env, dataSourceFactory, "dataSources", "Ljava/util/Hashtable;");
}

} // extern "C"
