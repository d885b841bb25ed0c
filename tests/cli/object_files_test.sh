# Objects for other programs: what we write is read by one of them, with the same extent and the same fronts; what
# others write becomes an object; what is damaged costs a message.
cat >scene.ovd <<'END'
<ombrivex_project>
  <ovo_reader name="Wedge" filename="wedge.ovo"/>
</ombrivex_project>
END

# A wedge in other programs' space: right-handed, fronts counter-clockwise, y up. Its slope looks up and towards +z.
cat >wedge.mtl <<'END'
newmtl bark
Kd 0.25 0.5 0.125
map_Kd bark.png
newmtl leaf
Kd 1 0 0
map_Kd C:\somewhere\nowhere.png
newmtl unused
END
cat >wedge.obj <<'END'
mtllib wedge.mtl
v 0 0 0
v 4 0 0
v 4 0 3
v 0 0 3
v 0 2 0
v 4 2 0
vt 0 0
vt 1 0
vt 1 1
vn 0 12 8
usemtl bark
f 4/1/1 3/2/1 6/3/1
f 4/1/1 6/3/1 5/2/1
usemtl leaf
f 1/1 2/2 3/3
f 1/1 3/3 4/2
f 2 1 5
f 2 5 6
f 1 4 5
f 2 6 3
END
cp "$SOURCE/scenes/buoy.png" bark.png
expect 0 "$OV" convert wedge.obj -o wedge.ovo --json
prints '"points": 6'
prints '"triangles": 8'
prints '"materials": 2'
shows "nowhere.png is not to be found"
# The clip has a shader for each material; the images' paths are whole.
grep -a -q '  name="bark"' wedge.ovo || fail "no shader for the bark"
grep -a -q "colour_image=\"$(pwd)/bark.png\"" wedge.ovo || fail "the image isn't named"
! grep -a -q 'unused' wedge.ovo || fail "a material that nothing has"
expect 0 "$OV" export scene.ovd Wedge -o back.obj --quiet
grep -q '^v 4 2 -*0$' back.obj || fail "a point is lost: $(grep '^v ' back.obj)"
[ "$(grep -c '^f ' back.obj)" = 8 ] || fail "not eight triangles"

# A new project round it has its shaders, and renders.
expect 0 "$OV" convert wedge.ovo -o round.ovd
grep -q '<default_shader' round.ovd || fail "the object's shaders aren't in the project"
expect 0 "$OV" render round.ovd -o round.png --width 32 --height 18 -s 1

# Scale, axes and welding.
expect 0 "$OV" convert wedge.obj -o z.obj --up z --scale 0.5
# (4, 2, 0) with z up is 4 east and 2 north, which is -2 along the file's z.
grep -q '^v 2 0 -1$' z.obj || fail "the axes of --up z: $(grep '^v ' z.obj)"
printf 'v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1.0001 0 0\nv 0 1.0001 0\nv 1 1 0\nf 1 2 3\nf 4 6 5\n' >seam.obj
expect 0 "$OV" convert seam.obj -o seam.ovo --json
prints '"points": 6'
expect 0 "$OV" convert seam.obj -o seam.ovo --json --weld 0.001
prints '"points": 4'

# There and back over our own FBX, text as binary is nothing that its reader takes back: units and axes hold.
for form in "" --ascii; do
  expect 0 "$OV" export scene.ovd Wedge -o wedge.fbx --quiet $form
  expect 0 "$OV" convert wedge.fbx -o again.obj --json
  prints '"metres_per_unit": 1.0'
  grep '^v ' back.obj | sed 's/-0$/0/' | sort >before
  grep '^v ' again.obj | sed 's/-0$/0/' | sort >after
  diff before after >out || fail "points of FBX $form"
done

# What can't be done.
expect 3 "$OV" convert missing.obj -o x.ovo
head -c 300 wedge.fbx >cut.fbx
expect 3 "$OV" convert cut.fbx -o x.ovo
[ ! -e x.ovo ] || fail "something of a damaged file was written"
expect 2 "$OV" convert wedge.obj -o x.txt
expect 4 "$OV" convert wedge.obj -o nowhere/x.ovo
expect 2 "$OV" export scene.ovd -o x.obj
expect 1 "$OV" export scene.ovd Wedge -o x.vdb
printf '<ombrivex_project><ovo_reader name="Gone" filename="gone.ovo"/></ombrivex_project>' >gone.ovd
expect 1 "$OV" export gone.ovd Gone -o x.obj
# A full disc: the old file stays.
for extension in ovo obj fbx lwo ply; do
  cp back.obj full.$extension
  expect 4 sh -c "ulimit -f 0; exec \"$OV\" export scene.ovd Wedge -o full.$extension"
  cmp -s back.obj full.$extension || fail "the old file is gone: $extension"
done

# An older project in today's spelling.
printf '<ombrivex_project><planet name="P" radius="1000"/></ombrivex_project>' >old.ovd
expect 0 "$OV" convert old.ovd -o new.ovd
grep -q 'radius="1000"' new.ovd || fail "the project is not the same"

# A frame's diced surface, and the same in a render.
expect 0 "$OV" export "$SOURCE/scenes/first_light.ovd" --diced --width 48 --height 27 -o terrain.ply --json
prints '"triangles"'
sed 's|</ombrivex_project>|<lwo_micro_exporter name="Micro" filename="terrain_##.lwo"/></ombrivex_project>|' \
  "$SOURCE/scenes/first_light.ovd" >micro.ovd
expect 0 "$OV" render micro.ovd -o micro.png --width 48 --height 27 -s 1 --set "Render.micro_exporter=Micro"
[ -s terrain_01.lwo ] || fail "the render exported nothing"

if ! command -v assimp >/dev/null 2>&1; then
  echo "left out: assimp isn't installed (Debian package assimp-utils)"
  return 0
fi
# Another program reads all of them, with the same fronts: they look outward, so what they enclose is 12 and not -12.
for file in wedge.fbx wedge.lwo wedge.ply text.fbx; do
  text=
  [ $file != text.fbx ] || text=--ascii
  expect 0 "$OV" export scene.ovd Wedge -o $file --quiet $text
  expect 0 assimp info $file
  prints "Faces:              8"
  expect 0 assimp export $file outside.obj
  awk '
    $1 == "v" { ++n; x[n] = $2; y[n] = $3; z[n] = $4 }
    $1 == "f" {
      split($2, a, "/"); split($3, b, "/"); split($4, c, "/")
      i = a[1]; j = b[1]; k = c[1]
      volume += x[i] * (y[j] * z[k] - z[j] * y[k]) / 6
      volume += y[i] * (z[j] * x[k] - x[j] * z[k]) / 6
      volume += z[i] * (x[j] * y[k] - y[j] * x[k]) / 6
    }
    END { if (volume < 11.999 || volume > 12.001) { print "volume " volume; exit 1 } }' outside.obj >report ||
    fail "$file: $(cat report)"
  case $file in *.fbx)
    # The slope's own normal, and one made for the bottom, which has none.
    for normal in '0 0.83205[0-9]* 0.5547' '-*0 -1 -*0'; do
      grep -q "^vn *$normal" outside.obj || fail "$file: no normal $normal among $(grep '^vn' outside.obj)"
    done ;;
  esac
done
expect 0 assimp info wedge.fbx
prints "bark"
for file in terrain.ply terrain_01.lwo; do expect 0 assimp info $file; done
