/*
Filter: fade
Description: Fades to one color
Parameter: float amount; default 0.5; min 0; max 1
Parameter: vec3 color; default 0; min 0; max 1
*/
void fade(float amount, vec3 color) {
    gl_FragColor.rgb = mix(gl_FragColor.rgb, color, amount);
}
