/*
Filter: blur
Description: Softens. Reads the original frame: put it first
Parameter: float radius; default 1.5; min 0; max 8 // pixels between the 25 points that are averaged
*/
vec4 blur_row(vec2 middle, vec2 right) {
    return 0.375 * texture2D(kel_frame, middle) +
           0.25 * (texture2D(kel_frame, middle - right) + texture2D(kel_frame, middle + right)) +
           0.0625 * (texture2D(kel_frame, middle - 2.0 * right) + texture2D(kel_frame, middle + 2.0 * right));
}
void blur(float radius) {
    vec2 right = vec2(kel_pixel.x * radius, 0.0);
    vec2 down = vec2(0.0, kel_pixel.y * radius);
    gl_FragColor = 0.375 * blur_row(kel_at, right) +
                   0.25 * (blur_row(kel_at - down, right) + blur_row(kel_at + down, right)) +
                   0.0625 * (blur_row(kel_at - 2.0 * down, right) + blur_row(kel_at + 2.0 * down, right));
}
