# The installed tree runs by itself, and another's module is built against it, loaded from OV_PLUGIN_PATH and used.
expect 0 "$CMAKE" --install "$BUILD" --prefix "$PWD/tree"
installed=$PWD/tree/bin/ov
# Nothing of the build tree may be needed.
expect 0 env -i "$installed" version
expect 0 env -i "$installed" nodes
prints power_fractal_shader_v3

flags=
[ -z "$SANITIZE" ] || flags="-fsanitize=$SANITIZE"
expect 0 "$CMAKE" -G Ninja -S "$SOURCE/tests/foreign_module" -B foreign -DCMAKE_PREFIX_PATH="$PWD/tree" \
  -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_BUILD_TYPE=Release
expect 0 "$CMAKE" --build foreign
expect 0 "$installed" nodes
! grep -q stripes_shader out || fail "the module is loaded without being asked for"
export OV_PLUGIN_PATH=$PWD/foreign
expect 0 "$installed" describe --json stripes_shader
prints '"implementation": "StripesShader"'

# Its shader in a project, evaluated and rendered: bands of 10 m, every other one raised by 3 m.
expect 0 "$installed" new scene.ovd --like plain
sed 's|^  <planet$|  <stripes_shader name="Stripes" height="3" colour="0.1 0.9 0.1"/>\n  <planet|' scene.ovd >striped.ovd
printf '1 5 2\n1 15 2\n' >points
expect 0 "$installed" eval striped.ovd Stripes points
prints '1,5,2,0,1,5,2,0,0,0'
prints '1,15,2,3,1,18,2,0.1,0.9,0.1'
for colour in red green; do
  value="1 0 0"
  [ $colour = red ] || value="0 1 0"
  expect 0 "$installed" render striped.ovd -o $colour.png --width 48 --height 27 -s 1 --set "Planet 01.surface_shader=Stripes" \
    --set "Stripes.spacing=1000" --set "Stripes.colour=$value"
done
! cmp -s red.png green.png || fail "the shader's colour doesn't show in the picture"
