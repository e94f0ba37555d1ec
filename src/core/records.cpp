// The fit records. Their copies are selective on purpose: copying an input copies its
// settings but not its measurement, a copy-constructed result starts empty, and assigning a
// result keeps the target's deviation list.
#include "metrofit.h"

CFitInput::CFitInput()
    : m_fitType(FIT_SPHERE),
      m_auxValues{0.0, 0.0, 0.0, 0.0, 0.0},
      m_refDirection(0.0, 0.0, 1.0),
      m_refSecondDirection(0.0, 1.0, 0.0),
      m_option1Enabled(false),
      m_option1Value(0.0),
      m_option2Enabled(false),
      m_option2Value(0.0),
      m_useReference(false),
      m_probeRadius(0.0) {}

CFitInput::CFitInput(const CFitInput& other) : CFitInput() {
  *this = other;
}

void CFitInput::operator=(const CFitInput& other) {
  if (this == &other) return;
  m_fitType = other.m_fitType;
  m_refOrigin = other.m_refOrigin;
  m_refDirection = other.m_refDirection;
  m_refSecondDirection = other.m_refSecondDirection;
  m_option1Enabled = other.m_option1Enabled;
  m_option1Value = other.m_option1Value;
  m_option2Enabled = other.m_option2Enabled;
  m_option2Value = other.m_option2Value;
  m_useReference = other.m_useReference;
  m_probeRadius = other.m_probeRadius;
  m_centerParam = other.m_centerParam;
  m_axisParam = other.m_axisParam;
  m_angleParam = other.m_angleParam;
  m_size1Param = other.m_size1Param;
  m_size2Param = other.m_size2Param;
  m_size3Param = other.m_size3Param;
}

CFitInput::~CFitInput() = default;

// m_extraValue is deliberately left unset by both constructors.
CFitResult::CFitResult()
    : m_sigma(0.0),
      m_rms(0.0),
      m_formError(0.0),
      m_minDeviation(0.0),
      m_maxDeviation(0.0),
      m_iterations(0),
      m_valid(0),
      m_objective(0.0) {}

// Deliberately copies nothing: code that needs a copy of a result assigns it afterwards.
CFitResult::CFitResult(const CFitResult& /*other*/) : CFitResult() {}

void CFitResult::operator=(const CFitResult& other) {
  m_center = other.m_center;
  m_axis = other.m_axis;
  m_angles = other.m_angles;
  m_size1 = other.m_size1;
  m_size2 = other.m_size2;
  m_size3 = other.m_size3;
  m_sigma = other.m_sigma;
  m_rms = other.m_rms;
  m_formError = other.m_formError;
  m_minDeviation = other.m_minDeviation;
  m_maxDeviation = other.m_maxDeviation;
  m_iterations = other.m_iterations;
  m_valid = other.m_valid;
  m_objective = other.m_objective;
  if (this != &other) m_message = other.m_message;
}

void CFitResult::operator=(const CFitInput& input) {
  m_center = input.m_centerParam.value;
  m_axis = input.m_axisParam.value;
  m_angles = input.m_angleParam.value;
  m_size1 = input.m_size1Param.value;
  m_size2 = input.m_size2Param.value;
  m_size3 = input.m_size3Param.value;
}

CFitResult::~CFitResult() = default;
