// Everything that is measured, by the file that implements it.
#pragma once

#include <vector>

#include "bench/subject.h"

std::vector<SubjectRow> registrySubjects();
std::vector<SubjectRow> floorSubjects();
std::vector<SubjectRow> databaseSubjects();
std::vector<SubjectRow> textPeerSubjects();
