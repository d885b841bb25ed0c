// Project files: reading and writing .ovd, clips of nodes, and what they need.
#pragma once

#include "host/project/host_classes.h"
#include "host/project/new_project.h"
#include "host/project/project_reader.h"
#include "host/project/project_writer.h"
