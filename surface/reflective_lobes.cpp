// Lobes that reflective surfaces leave for path tracers.
#include "surface/reflective_point.h"
#include "surface/reflective_shader.h"

trLobe ReflectiveShader::ReflectionLobe(const ReflectivePoint& at) const {
  trLobe lobe;
  lobe.normal = at.isFront ? at.normal : -at.normal;
  lobe.litNormal = at.facing;
  lobe.roughness = at.roughness;
  lobe.roughness2 = at.highlightRoughness2;
  lobe.fresnelScale = at.f;
  lobe.invTweak = static_cast<float>(SafeReciprocal(specularTweak_));
  lobe.index = Tamed(static_cast<float>(at.index));
  lobe.outerIndex = Tamed(static_cast<float>(at.index >= 1 ? at.index : SafeReciprocal(at.index)));

  lobe.lightGain = at.lightGain;
  lobe.kind = trLobe::kSpecularReflection;
  lobe.base = at.base;
  lobe.edge = at.edge;
  lobe.colour = at.reflectance;
  lobe.model = lobe.facets = modelOfLobes_;
  if (!at.isCompensated) return lobe;
  // Inside, all that isn't reflected gets out, and what the surface is made of counts for both.
  const bool isOutside = at.isFront || at.isThin;
  lobe.compensated = 1;
  lobe.thin = at.isThin;
  lobe.reflectivity = isOutside ? at.reflectivity : trFCol(1.0f);
  lobe.clear = isOutside ? at.transparency : trFCol(1.0f);
  return lobe;
}

trLobe ReflectiveShader::TransmissionLobe(const ReflectivePoint& at) const {
  trLobe lobe = ReflectionLobe(at);
  // Inside, what isn't reflected gets out; outside, what reflectivity leaves gets in.
  lobe.kind = trLobe::kSpecularTransmission;
  lobe.litNormal = trVector();
  lobe.base = lobe.edge = at.transparency;
  lobe.reflectivity = at.isFront || at.isThin ? at.reflectivity : trFCol(1.0f);
  lobe.colour = at.transmittance;
  lobe.model = -1;
  lobe.thin = at.isThin;
  return lobe;
}

void ReflectiveShader::AppendLobes(trShadingInterface& si, const ReflectivePoint& at) const {
  const int medium = at.absorbsReflected || at.absorbsTransmitted ? AddMedium(si) : -1;
  trLobe reflection = ReflectionLobe(at), transmission = TransmissionLobe(at);
  reflection.medium = static_cast<signed char>(at.absorbsReflected ? medium : -1);
  transmission.medium = static_cast<signed char>(at.absorbsTransmitted ? medium : -1);
  si.Bsdf().AddLobe(reflection);
  si.Bsdf().AddLobe(transmission);
}
