// States of processes, declared anew.
#pragma once

enum { SZOMB = 5 };
