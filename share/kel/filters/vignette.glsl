/*
Filter: vignette
Description: Darkens toward the corners
Parameter: float radius; default 0.35; min 0; max 1    // where it starts: distance from the center, in frame heights
Parameter: float softness; default 0.5; min 0.01; max 1 // distance from there to the full amount
Parameter: float amount; default 0.8; min 0; max 1
*/
void vignette(float radius, float softness, float amount) {
    vec2 from_middle = (kel_position - 0.5) * vec2(kel_pixel.y / kel_pixel.x, 1.0);
    gl_FragColor.rgb *= 1.0 - amount * smoothstep(radius, radius + softness, length(from_middle));
}
