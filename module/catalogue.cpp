// The catalogue of built classes, in registration order. catalogue.txt beside it lists every class there is
// to be.
#include "module/catalogue.h"

#include "atmosphere/cloud_layer_v2.h"
#include "atmosphere/cloud_layer_v3.h"
#include "atmosphere/easy_cloud.h"
#include "atmosphere/ovv_node_pack.h"
#include "atmosphere/planet_atmosphere.h"
#include "atmosphere/sky_paint.h"
#include "atmosphere/sky_paint_solve.h"
#include "fractal/alpine_fractal_shader.h"
#include "fractal/crater_shader.h"
#include "fractal/fake_stones_shader.h"
#include "fractal/fractal_warp_shader.h"
#include "fractal/power_fractal_shader.h"
#include "fractal/small_effects.h"
#include "fractal/strata_shader.h"
#include "fractal/transform_shaders.h"
#include "fractal/vortex_warp_shader.h"
#include "fractal/warp_shaders.h"
#include "heightfield/filter_operators.h"
#include "heightfield/heightfield_erode_v2.h"
#include "heightfield/heightfield_erode_v3.h"
#include "heightfield/heightfield_export_lwo.h"
#include "heightfield/heightfield_from_shader.h"
#include "heightfield/heightfield_generate.h"
#include "heightfield/heightfield_make_river.h"
#include "heightfield/heightfield_merge.h"
#include "heightfield/heightfield_shader.h"
#include "heightfield/heightfield_smooth_erode.h"
#include "heightfield/size_operators.h"
#include "heightfield/vertical_operators.h"
#include "imagemap/geog_image_map_shader.h"
#include "imagemap/image_map_shader.h"
#include "imagemap/mola_map_shader.h"
#include "objectio/error_writer.h"
#include "objectio/fbx_writer.h"
#include "objectio/lwo_writer.h"
#include "objectio/micro_exporter.h"
#include "objectio/obj_writer.h"
#include "objectio/ovo_reader.h"
#include "objectio/ovo_writer.h"
#include "objects/grass_clump.h"
#include "objects/lake.h"
#include "objects/markers.h"
#include "objects/planet.h"
#include "objects/planet_surface_shader.h"
#include "objects/poly_sphere.h"
#include "objects/populator.h"
#include "objects/primitive_geometry.h"
#include "objects/primitive_objects.h"
#include "objects/rock.h"
#include "objects/sphere_geometry_shader.h"
#include "surface/colour_utilities.h"
#include "surface/compute_terrain.h"
#include "surface/default_shader.h"
#include "surface/distribution_shaders.h"
#include "surface/glass_shader.h"
#include "surface/lambert_shader.h"
#include "surface/merge_shader.h"
#include "surface/reflective_shader.h"
#include "surface/shader_array.h"
#include "surface/shape_shader.h"
#include "surface/surface_layer.h"
#include "surface/visualise.h"
#include "surface/water_shader.h"
#include "tools/demo_controls.h"
#include "tools/get_object_vector.h"
#include "tools/image_file_processor.h"
#include "tools/live_value_display.h"
#include "tools/note.h"
#include "tools/notifier.h"
#include "tools/timed_trigger.h"

namespace {

struct Row {
  const char* category;
  const char* name;
  trBase* (*create)();
};

const Row kRows[] = {
    {"shader/surface", "default_shader", trCreateNode<DefaultShader>},
    {"shader/surface", "surface_layer", trCreateNode<SurfaceLayer>},
    {"hidden", "alpine_fractal_shader", trCreateNode<AlpineFractalShader>},
    {"shader/displacement", "alpine_fractal_shader_v2", trCreateNode<AlpineFractalShaderV2>},
    {"hidden", "distribution_shader_v2", trCreateNode<DistributionShaderV2>},
    {"hidden", "distribution_shader_v3", trCreateNode<DistributionShaderV3>},
    {"shader/colour", "distribution_shader_v4", trCreateNode<DistributionShaderV4>},
    {"shader/atmosphere", "cloud_layer_v2", trCreateNode<CloudLayerV2>},
    {"shader/atmosphere", "cloud_layer_v3", trCreateNode<CloudLayerV3>},
    {"shader/colour", "cloud_fractal_shader_v3", trCreateNode<CloudFractalShaderV3>},
    {"shader/displacement", "crater_shader", trCreateNode<CraterShader>},
    {"shader/colour", "colour_adjust_shader", trCreateNode<ColourAdjustShader>},
    {"shader/colour", "distance_shader", trCreateNode<DistanceShader>},
    {"shader/atmosphere", "easy_cloud", trCreateNode<EasyCloud::CloudShader>},
    {"shader/displacement", "fake_stones_shader", trCreateNode<FakeStonesShader>},
    {"shader/surface", "glass_shader", trCreateNode<GlassShader>},
    {"hidden", "heightfield_displacement_shader", trCreateNode<HeightfieldDisplacementShader>},
    {"shader/displacement/heightfield", "heightfield_shader", trCreateNode<HeightfieldShader>},
    {"shader/colour", "image_map_shader", trCreateNode<ImageMapShader>},
    {"shader/displacement", "image_map_shader", trCreateNode<ImageMapShader>},
    {"shader/surface", "lambert_shader", trCreateNode<LambertShader>},
    {"hidden", "magnet_shader", trCreateNode<MagnetShader>},
    {"shader/mix", "merge_shader", trCreateNode<MergeShader>},
    {"hidden", "multi_shader", trCreateNode<MultiShader>},
    {"shader/displacement", "MOLA_map_shader", trCreateNode<MOLAMapShader>},
    {"shader/atmosphere", "planet_atmosphere", trCreateNode<PlanetAtmosphere>},
    {"hidden", "planet_surface_shader", trCreateNode<PlanetSurfaceShader>},
    {"hidden", "power_fractal_shader_v2", trCreateNode<PowerFractalShaderV2>},
    {"shader/displacement", "power_fractal_shader_v3", trCreateNode<PowerFractalShaderV3>},
    {"shader/colour", "power_fractal_shader_v3", trCreateNode<PowerFractalShaderV3>},
    {"shader/displacement", "redirect_shader", trCreateNode<RedirectShader>},
    {"shader/surface", "reflective_shader", trCreateNode<ReflectiveShader>},
    {"shader/displacement", "strata_and_outcrops_shader_v2", trCreateNode<StrataAndOutcropsShaderV2>},
    {"hidden/sky_paint", "sky_paint", trCreateNode<SkyPaint>},
    {"sky_paint", "sky_paint_merge", trCreateNode<SkyPaintMerge>},
    {"hidden", "sky_paint_solve", trCreateNode<SkyPaintSolve>},
    {"shader/filter", "smoothing_filter_shader", trCreateNode<SmoothingFilterShader>},
    {"shader/transform", "transform_input_shader", trCreateNode<TransformInputShader>},
    {"shader/transform", "transform_merge_shader", trCreateNode<TransformMergeShader>},
    {"hidden", "transform_shader", trCreateNode<TransformMergeShader>},
    {"shader/transform", "fractal_warp_shader", trCreateNode<FractalWarpShader>},
    {"shader/displacement", "twist_and_shear_shader", trCreateNode<TwistAndShearShader>},
    {"shader/colour", "visualise_normal", trCreateNode<VisualiseNormal>},
    {"shader/colour", "visualise_tex_coords", trCreateNode<VisualiseTexCoords>},
    {"shader/transform", "vortex_warp_shader", trCreateNode<VortexWarpShader>},
    {"shader/transform", "warp_input_shader", trCreateNode<WarpInputShader>},
    {"shader/transform", "warp_merge_shader", trCreateNode<WarpShader>},
    {"hidden", "warp_shader", trCreateNode<WarpShader>},
    {"shader/surface", "water_shader", trCreateNode<WaterShader>},
    {"shader/colour", "simple_shape_shader", trCreateNode<ShapeShader>},
    {"shader/displacement", "simple_shape_shader", trCreateNode<ShapeShader>},
    {"shader/colour", "shader_array", trCreateNode<ShaderArray>},
    {"shader/displacement", "shader_array", trCreateNode<ShaderArray>},
    {"shader/colour", "contour_shader", trCreateNode<ContourShader>},
    {"hidden", "cube_geometry_shader", trCreateNode<CubeGeometryShader>},
    {"hidden", "octahedron_geometry_shader", trCreateNode<OctahedronGeometryShader>},
    {"hidden", "sphere_geometry_shader", trCreateNode<SphereGeometryShader>},
    {"shader/utility", "tex_coords_from_XYZ", trCreateNode<TexCoordsFromXYZ>},
    {"shader/utility", "compute_normal", trCreateNode<ComputeNormal>},
    {"shader/utility", "compute_terrain", trCreateNode<ComputeTerrain>},
    {"hidden", "experiment_TEST", trCreateNode<AlpineFractalShader>},
    {"shader/colour", "geog_image_map_shader", trCreateNode<GeogImageMapShader>},
    {"shader/displacement", "geog_image_map_shader", trCreateNode<GeogImageMapShader>},
    {"heightfield_operator", "heightfield_generate", trCreateNode<HeightfieldGenerate>},
    {"heightfield_operator", "heightfield_adjust_vertical", trCreateNode<HeightfieldAdjustVertical>},
    {"heightfield_operator", "heightfield_clip_vertical", trCreateNode<HeightfieldClipVertical>},
    {"heightfield_operator", "heightfield_curve_vertical", trCreateNode<HeightfieldCurveVertical>},
    {"heightfield_operator", "heightfield_crop", trCreateNode<HeightfieldCrop>},
    {"hidden", "heightfield_erode_v2", trCreateNode<HeightfieldErodeV2>},
    {"heightfield_operator", "heightfield_erode_v3", trCreateNode<HeightfieldErodeV3>},
    {"heightfield_operator", "heightfield_export_LWO", trCreateNode<HeightfieldExportLWO>},
    {"heightfield_operator", "heightfield_from_shader", trCreateNode<HeightfieldFromShader>},
    {"hidden", "heightfield_make_river", trCreateNode<HeightfieldMakeRiver>},
    {"heightfield_operator", "heightfield_merge", trCreateNode<HeightfieldMerge>},
    {"heightfield_operator", "heightfield_resize", trCreateNode<HeightfieldResize>},
    {"heightfield_operator", "heightfield_smooth", trCreateNode<HeightfieldSmooth>},
    {"heightfield_operator", "heightfield_smooth_erode", trCreateNode<HeightfieldSmoothErode>},
    {"hidden", "heightfield_erode_experiment", trCreateNode<HeightfieldErosionExperiment>},
    {"object", "bounding_box", trCreateNode<BoundingBox>},
    {"object", "landmark", trCreateNode<Landmark>},
    {"object/displaceable", "cube", trCreateNode<Cube>},
    {"object/displaceable", "octahedron", trCreateNode<Octahedron>},
    {"object/displaceable", "planet", trCreateNode<Planet>},
    {"object/populatable", "grass_clump", trCreateNode<GrassClump>},
    {"hidden", "poly_cube", trCreateNode<PolyCube>},
    {"object/populatable", "poly_sphere", trCreateNode<PolySphere>},
    {"object/populatable", "rock", trCreateNode<Rock>},
    {"water", "lake", trCreateNode<Lake>},
    {"hidden", "populator_v3", trCreateNode<Populator3>},
    {"hidden", "object_writer_lwo", trCreateNode<ObjectWriterLWO>},
    {"function/debug", "notifier", trCreateNode<Notifier>},
    {"function/debug", "live_value_display", trCreateNode<LiveValueDisplay>},
    {"function/debug", "timed_trigger", trCreateNode<TimedTrigger>},
    {"function/get", "get_object_vector", trCreateNode<GetInstanceVector>},
    {"function/rotate", "vortex_vector", trCreateNode<VortexVector>},
    {"hidden", "demo_controls", trCreateNode<DemoControls>},
    {"tools", "image_file_processor", trCreateNode<ImageFileProcessor>},
    {"", "note", trCreateNode<Note>},
    {"micro_handler", "micro_exporter", trCreateNode<MicroExporter>},
    {"micro_handler", "lwo_micro_exporter", trCreateNode<LWOMicroExporter>},
    {"object/displaceable", "planet", trCreateNode<Planet>},
    {"object/populatable", "ovo_reader", trCreateNode<OVOReader>},
    {"hidden", "object_writer_err", trCreateNode<ObjectWriterErr>},
    {"hidden", "object_writer_lwo", trCreateNode<ObjectWriterLWO>},
    {"hidden", "object_writer_obj", trCreateNode<ObjectWriterOBJ>},
    {"hidden", "object_writer_ovo", trCreateNode<ObjectWriterOVO>},
    {"hidden", "object_writer_fbx", trCreateNode<ObjectWriterFBX>},
    {"hidden", "ovv_node_pack", trCreateNode<OvvNodePackInOvd>},
};

}  // namespace

void RegisterCatalogue(trPluginToken& token) {
  for (const Row& row : kRows)
    token.AddClass(trString(row.category), trString(row.name), row.create, trDestroyNode, trString());
  trClasses.AddClassNameRedirect("get_instance_vector", "get_object_vector");
}
