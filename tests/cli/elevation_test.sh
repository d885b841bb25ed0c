# `ov heightfield`: formats as other programs read them, exit codes, a disc that is full, reports.
cat >hills.asc <<'END'
ncols 4
nrows 3
xllcorner 6.5
yllcorner 45.5
cellsize 1
NODATA_value -1
10 20 30 40
-1 21 31 41
12 22 32 42
END
echo 'GEOGCS["WGS 84",DATUM["WGS_1984",SPHEROID["WGS 84",6378137,298.257223563]],PRIMEM["Greenwich",0],UNIT["degree",0.0174532925199433]]' >hills.prj
cat >scene.ovd <<'END'
<ombrivex_project>
  <heightfield_load name="Hills" filename="hills.asc" vertical_offset="100"/>
  <constant_scalar name="Number"/>
</ombrivex_project>
END

expect 0 "$OV" heightfield scene.ovd Hills --json --stats
prints '"points_without_height": 0'
prints '"south": 46.0'
prints '"east": 10.0'
prints '"highest": 142.0'
expect 0 "$OV" heightfield scene.ovd Hills --stats
prints "4 x 3 points"
for file in a.tif a.tiff a.png a.exr a.asc a.ovh; do
  expect 0 "$OV" heightfield scene.ovd Hills -o $file --quiet
  [ -s $file ] || fail "no $file"
done
expect 0 "$OV" heightfield scene.ovd Hills -o a16.tif --bits 16 --hillshade relief.png --slope slope.png
shows "m are 0 to 65535"
for picture in relief.png slope.png a.png; do
  [ "$(head -c 4 $picture | od -An -tx1 | tr -d ' ')" = 89504e47 ] || fail "$picture is no PNG"
done
# Endings in capitals mean the same.
expect 0 "$OV" heightfield scene.ovd Hills -o B.PNG --hillshade R.PNG --slope S.Png --quiet
expect 0 "$OV" heightfield scene.ovd Hills -o B.LWO --quiet
expect 2 "$OV" heightfield scene.ovd Hills -o B.PNG --bits 32
for file in B.PNG R.PNG S.Png B.LWO; do [ -s $file ] || fail "no $file"; done
[ -z "$(find . -name '*.tmp*')" ] || fail "temporary files are left"

# Another program's word on what was written.
if command -v gdalinfo >/dev/null 2>&1; then
  for file in a.tif a16.tif a.asc; do
    expect 0 gdalinfo $file
    prints "WGS 84"
    prints "Origin = (6.5"
    prints "Pixel Size = (1.0"
    expect 0 gdallocationinfo -valonly -wgs84 $file 9 48
    case $(cat out) in 130*) ;; *) [ $file = a16.tif ] || fail "$file: $(cat out) instead of 130 in the north" ;; esac
  done
  expect 0 gdal_translate -q -unscale -ot Float32 a16.tif plain.tif
  expect 0 gdallocationinfo -valonly plain.tif 3 0
  case $(cat out) in 140* | 139.99*) ;; *) fail "16 bits stand for $(cat out) instead of 140" ;; esac
  expect 0 gdallocationinfo -valonly a.png 3 2
  [ "$(cat out)" = 65535 ] || fail "the highest isn't 65535"
fi

# Usage
for wrong in "" "-o a.xyz" "-o a.png --bits 32" "-o a.asc --bits 16" "--bits 8 -o a.tif" "--hillshade a.jpg" "--slope a" \
  "--hillshade a.png --exaggeration 0"; do
  # shellcheck disable=SC2086
  expect 2 "$OV" heightfield scene.ovd Hills $wrong
done
expect 1 "$OV" heightfield scene.ovd Number --stats
shows "is no heightfield"
expect 1 "$OV" heightfield scene.ovd Nobody --stats
expect 4 "$OV" heightfield scene.ovd Hills -o no_such_folder/a.tif
mkdir folder.tif
expect 4 "$OV" heightfield scene.ovd Hills -o folder.tif
# A file that is needed and can't be read: neither a raster nor a picture with nothing in its place counts as done.
cat >shown.ovd <<'END'
<ombrivex_project>
  <heightfield_load name="Hills" filename="hills.asc" georeference="0"/>
  <render name="Render" image_width="16" image_height="9" samples="1"/>
  <planet name="Planet" surface_shader="On it"/>
  <heightfield_shader name="On it" heightfield="Hills"/>
</ombrivex_project>
END
expect 0 "$OV" render shown.ovd -o shown.png
for file in missing.tif no.tif; do
  printf 'no raster' >no.tif
  expect 3 "$OV" render shown.ovd -o shown_$file.png --set Hills.filename=$file
  [ "$(grep -c "error: .*$file" err)" = 1 ] || fail "not one message about $file"
  [ -s shown_$file.png ] || fail "no picture without $file"
  expect 3 "$OV" check shown.ovd --set Hills.filename=$file
  shows "/Hills: filename: "
  expect 3 "$OV" heightfield shown.ovd "On it" --stats --set Hills.filename=$file
done
expect 3 "$OV" heightfield scene.ovd Hills -o b.tif --set Hills.filename=missing.tif
shows missing.tif
[ ! -e b.tif ] || fail "a file without heights"
expect 3 "$OV" heightfield scene.ovd Hills -o b.tif --set Hills.filename=no.tif
shows "no known raster format"

# A file that names others to read isn't followed.
printf '<VRTDataset rasterXSize="4" rasterYSize="3"><VRTRasterBand dataType="Float32" band="1"><SimpleSource><SourceFilename relativeToVRT="1">hills.asc</SourceFilename></SimpleSource></VRTRasterBand></VRTDataset>' >virtual.tif
expect 3 "$OV" heightfield scene.ovd Hills --stats --set Hills.filename=virtual.tif

# What isn't a number among whole ones is a hole, not a height of 0; a header beside a picture isn't the picture's.
printf 'ncols 3\nnrows 1\nxllcorner 0\nyllcorner 0\ncellsize 1\n8 nan 8\n' >hole.asc
expect 0 "$OV" heightfield scene.ovd Hills --stats --set Hills.filename=hole.asc
prints "heights   108 to 108 m"
printf 'NROWS 3\nNCOLS 4\nNBITS 16\n' >a.hdr
expect 0 "$OV" heightfield scene.ovd Hills --stats --set Hills.filename=a.png
prints "heights   210 to 242 m"
rm a.hdr

# What can't be made: one message, no file.
cat >wrong.ovd <<'END'
<ombrivex_project>
  <heightfield_generate name="Vast" size_in_pixels="1e300 2"/>
  <heightfield_generate name="None" size_in_pixels="0 0"/>
  <heightfield_generate name="Small" size_in_pixels="8 8"/>
  <heightfield_from_shader name="Itself" input_node="Small" shader="On it"/>
  <heightfield_shader name="On it" heightfield="Itself"/>
</ombrivex_project>
END
for node in Vast None Itself; do
  expect 1 "$OV" heightfield wrong.ovd $node -o wrong.tif
  [ "$(grep -c error: err)" = 1 ] || fail "not one message about $node"
  [ ! -e wrong.tif ] || fail "a file of $node"
done
expect 3 "$OV" heightfield scene.ovd Hills -o wrong.tif --set Hills.vertical_scale=1e300
shows "too great"

# A disc that takes no more than some blocks: the old file stays whole.
cat >wide.ovd <<'END'
<ombrivex_project>
  <heightfield_load name="Wide" filename="wide.asc"/>
</ombrivex_project>
END
{ printf 'ncols 700\nnrows 600\nxllcorner 0\nyllcorner 0\ncellsize 10\n'
  awk 'BEGIN { for (y = 0; y < 600; ++y) { for (x = 0; x < 700; ++x) printf "%.4f ", 100 * sin(x * y * 0.37); print "" } }'; } >wide.asc
for file in full.tif full.png full.asc full.ovh full.exr; do
  echo "what was there" >$file
  code=0
  (trap '' XFSZ; ulimit -f 16; exec "$OV" heightfield wide.ovd Wide -o $file --quiet) >/dev/null 2>err || code=$?
  [ $code = 4 ] || fail "$file: exit code $code of a full disc"
  shows "$file"
  [ "$(cat $file)" = "what was there" ] || fail "$file: the old file is gone"
done
[ -z "$(find . -name '*.tmp*')" ] || fail "temporary files are left"

# A stop on the way: what the operator has done goes to a name of its own, and the old file stays.
cat >long.ovd <<'END'
<ombrivex_project>
  <power_fractal_shader_v3 name="Fractal"/>
  <heightfield_load name="Hills" filename="hills.asc" georeference="0"/>
  <heightfield_resize name="Grid" input_node="Hills" re-sample_pixels="1" size_in_pixels="6000 6000"/>
  <heightfield_from_shader name="Sampled" input_node="Grid" shader="Fractal"/>
</ombrivex_project>
END
echo "what was there" >long.tif
"$OV" heightfield long.ovd Sampled -o long.tif --progress json >out 2>err &
job=$!
while kill -0 $job 2>/dev/null && ! grep -q Generating err; do sleep 0.1; done
kill -TERM $job 2>/dev/null || fail "it was done before it could be stopped"
code=0
wait $job || code=$?
[ $code = 143 ] || fail "exit code $code of a stopped run"
# One figure for the whole chain: what comes before the generator is behind it, and nothing falls.
awk -F '[:,]' '/"progress"/ { if ($2 < last) bad = 1; last = $2 } /Generating/ { if ($2 < 0.4) bad = 1 } END { exit bad }' err ||
  fail "the figure of progress starts again"
shows "another Ctrl-C leaves it"
shows "stopped; long.partial.tif holds"
[ -s long.partial.tif ] || fail "what was done is gone"
[ "$(cat long.tif)" = "what was there" ] || fail "the old file is gone"

# A user who may have no more threads gets the file all the same.
chmod 755 . && chmod 644 wide.ovd wide.asc && mkdir -m 777 free
if [ "$(id -u)" = 0 ] && command -v setpriv >/dev/null 2>&1 && command -v prlimit >/dev/null 2>&1 && [ -z "$SANITIZE" ] &&
  setpriv --reuid 65534 --regid 65534 --clear-groups test -r wide.ovd -a -x "$OV"; then
  expect 0 timeout -k 5 120 setpriv --reuid 65534 --regid 65534 --clear-groups prlimit --nproc=2 \
    "$OV" --threads 4 heightfield wide.ovd Wide -o free/wide.tif --quiet
  [ -s free/wide.tif ] || fail "no file of few threads"
fi

# The geoid of the sample scene, through the shader that uses it.
geoid=/usr/share/proj/egm96_15.gtx
if [ -e $geoid ]; then
  expect 0 "$OV" heightfield "$SOURCE/scenes/real_dem.ovd" "Geoid on the planet" --json
  prints '"node": "/Geoid"'
  prints '"south": -90.0'
  prints '"east": 179.75'
fi

# Part of it on the map of a zone: corners as the tools of the raster library compute them, each side the mean of its edge.
if [ -e $geoid ] && command -v gdalwarp >/dev/null 2>&1; then
  expect 0 gdalwarp -q -t_srs EPSG:32632 -te 300000 5000000 500000 5200000 -tr 5000 5000 $geoid zone.tif
  expect 0 "$OV" heightfield scene.ovd Hills --stats --set Hills.filename=zone.tif
  [ ! -s err ] || fail "a message about a map that fits"
  printf '%s\n' '302500 5002500' '400000 5002500' '497500 5002500' '302500 5197500' '400000 5197500' '497500 5197500' \
    '302500 5100000' '497500 5100000' | gdaltransform -s_srs EPSG:32632 -t_srs EPSG:4326 | awk '
    { x[NR] = $1; y[NR] = $2 }
    END { printf "latitude %.6f to %.6f, longitude %.6f to %.6f\n", (y[1] + 4 * y[2] + y[3]) / 6, (y[4] + 4 * y[5] + y[6]) / 6,
                 (x[1] + 4 * x[7] + x[4]) / 6, (x[3] + 4 * x[8] + x[6]) / 6 }' >wanted
  grep corners out | awk '{ printf "latitude %.6f to %.6f, longitude %.6f to %.6f\n", $3, $5, $7, $9 }' >found
  cmp -s wanted found || fail "corners $(cat found) instead of $(cat wanted)"
  # What comes of it lies on that map again, point on point; or by degrees.
  expect 0 "$OV" heightfield scene.ovd Hills -o again.tif --quiet --set Hills.filename=zone.tif --set Hills.vertical_offset=0
  expect 0 gdalinfo zone.tif
  grep -E 'ID\["EPSG",32632|^(Size|Origin|Pixel Size)' out >wanted
  [ "$(wc -l <wanted)" = 4 ] || fail "no four facts about zone.tif"
  expect 0 gdalinfo again.tif
  grep -E 'ID\["EPSG",32632|^(Size|Origin|Pixel Size)' out >found
  cmp -s wanted found || fail "$(cat found) instead of $(cat wanted)"
  expect 0 gdallocationinfo -valonly -geoloc again.tif 402500 5102500
  cp out found
  expect 0 gdallocationinfo -valonly -geoloc zone.tif 402500 5102500
  awk 'NR == FNR { v = $1; next } { exit ($1 - v) ^ 2 > 1e-8 }' found out || fail "$(cat found) instead of $(cat out)"
  expect 0 "$OV" heightfield scene.ovd Hills -o again.asc --quiet --set Hills.filename=zone.tif
  expect 0 gdalinfo again.asc
  prints "UTM zone 32N"
  prints "Origin = (300000.0"
  expect 0 "$OV" heightfield scene.ovd Hills -o again.tif --in-degrees --quiet --set Hills.filename=zone.tif
  expect 0 gdalinfo again.tif
  prints 'ID["EPSG",4326]'
  # The web's map is stretched by 1.46 at 47 degrees.
  expect 0 gdalwarp -q -t_srs EPSG:3857 -te 700000 5900000 900000 6000000 -tr 5000 5000 $geoid web.tif
  expect 0 "$OV" heightfield scene.ovd Hills --stats --set Hills.filename=web.tif
  awk '/spacing/ { exit !($2 > 3400 && $2 < 3450 && $4 > 3400 && $4 < 3450) }' out || fail "$(grep spacing out) on the web's map"
  # Grads from Paris; a projection that nobody knows.
  expect 0 gdal_translate -q -a_srs EPSG:4807 -a_ullr 0 50 10 40 zone.tif grads.tif
  expect 0 "$OV" heightfield scene.ovd Hills --stats --set Hills.filename=grads.tif
  prints "latitude 36.1125 to 44.8875, longitude 2.449729"
  expect 0 gdal_translate -q -a_srs 'PROJCS["Nowhere",GEOGCS["x",DATUM["d",SPHEROID["s",6378137,298]],PRIMEM["g",0],
    UNIT["degree",0.0174532925199433]],PROJECTION["No_Such"],UNIT["metre",1]]' zone.tif nowhere.tif
  expect 0 "$OV" heightfield scene.ovd Hills --stats --set Hills.filename=nowhere.tif
  [ "$(grep -c "warning: .*Nowhere gives no latitude and longitude" err)" = 1 ] || fail "not one message about the reference"
  [ "$(wc -l <err)" = 1 ] || fail "more than one message"
  ! grep -q corners out || fail "corners from nowhere"
  prints "5000 x 5000 m"
fi
