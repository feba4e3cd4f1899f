// How a thread of macOS tells how urgent it is, declared anew.
#pragma once

extern "C" {

enum qos_class_t : unsigned { QOS_CLASS_USER_INTERACTIVE = 0x21 };

int pthread_set_qos_class_self_np(qos_class_t qos_class, int relative_priority);

}  // extern "C"
