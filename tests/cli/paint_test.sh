# `ov paint`: viewpoints, pictures to paint on, paint taken back, and projects that mustn't be written over.
cat >scene.ovd <<'END'
<ombrivex_project>
  <camera name="Eye" position="5 1500 -20"/>
  <render name="Render" image_width="16" image_height="9"/>
  <sky_paint name="Sky paint 01"/>
</ombrivex_project>
END
expect 0 "$OV" paint scene.ovd
prints "/Sky paint 01: 0 of 10 viewpoints"
expect 0 "$OV" paint scene.ovd "Sky paint 01" --add -100 1234567.8 .5
expect 0 "$OV" paint scene.ovd --add-at-camera -o two.ovd
expect 0 "$OV" paint two.ovd
prints "1  at -100 1.23457e+06 0.5 m"
prints "2  at 5 1500 -20 m"
expect 0 "$OV" paint two.ovd --remove 2 -o one.ovd
cmp -s one.ovd scene.ovd || fail "a viewpoint that came and went is left"

# What is seen, and the paint, as a panorama and as faces; paint goes out and back without loss.
expect 0 "$OV" paint two.ovd -n 2 --export sky.png --size 64 -s 1
expect 0 "$OV" paint two.ovd -n 2 --export-paint none.png --size 64
expect 0 "$OV" paint two.ovd -n 1 --import sky.png --size 16 -o painted.ovd
expect 0 "$OV" paint painted.ovd -n 1 --export-paint face.png --faces
for letter in n e s w u d; do [ -s face_$letter.png ] || fail "no face $letter"; done
expect 0 "$OV" paint painted.ovd -n 2 --import face.png --faces -o again.ovd
expect 0 "$OV" paint again.ovd -n 2 --export-paint back.png --faces
for letter in n e s w u d; do cmp -s face_$letter.png back_$letter.png || fail "face $letter came back otherwise"; done
# Nothing was painted on what is as it was.
expect 0 "$OV" paint two.ovd -n 2 --import sky.png --over sky.png --size 16 -o clean.ovd
expect 0 "$OV" paint clean.ovd --json
[ "$(grep -c '"added": 0.0' out)" = 2 ] || fail "paint where there is none"
# A saved project is saved to the same bytes.
expect 0 "$OV" paint again.ovd --add 1 2 3
expect 0 "$OV" paint again.ovd --remove 3 -o third.ovd
expect 0 "$OV" paint third.ovd --add 1 2 3 -o fourth.ovd
cmp -s again.ovd fourth.ovd || fail "other bytes"

# Paint that can't be read isn't written over.
sed 's|\(<vec4f_array name = "face_w">[A-Za-z0-9]\{5\}\)[^<]*|\1|' again.ovd >damaged.ovd
cp damaged.ovd before.ovd
expect 1 "$OV" paint damaged.ovd --remove 3
shows "can't be decoded"
shows "isn't written"
cmp -s damaged.ovd before.ovd || fail "a damaged project was written over"

expect 2 "$OV" paint two.ovd --export-paint paint.png
shows "several viewpoints"
expect 2 "$OV" paint two.ovd -n 1 --import sky.jpg
expect 1 "$OV" paint two.ovd -n 3 --import sky.png
expect 3 "$OV" paint two.ovd -n 1 --import nothing.png
expect 1 "$OV" paint two.ovd Eye --add 0 0 0
expect 1 "$OV" paint two.ovd --cloud Eye --add 0 0 0
expect 4 "$OV" paint two.ovd -n 1 --export-paint no_such_folder/paint.png
