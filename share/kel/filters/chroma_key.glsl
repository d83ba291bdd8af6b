/*
Filter: chroma_key
Description: Makes one color transparent, at any brightness
Parameter: vec3 key; default 0, 1, 0; min 0; max 1
Parameter: float tolerance; default 0.15; min 0; max 1 // distance in chroma that is still the key
Parameter: float softness; default 0.1; min 0.001; max 1 // further distance to full opacity
*/
vec2 chroma_key_chroma(vec3 c) {
    return vec2(dot(c, vec3(-0.169, -0.331, 0.5)), dot(c, vec3(0.5, -0.419, -0.081)));
}
void chroma_key(vec3 key, float tolerance, float softness) {
    float away = distance(chroma_key_chroma(gl_FragColor.rgb), chroma_key_chroma(key));
    gl_FragColor.a *= smoothstep(tolerance, tolerance + softness, away);
}
